// Fuzz target: the input is the body of an 'stbl' (a run of table atoms) of one video track; the
// movie around it is fixed, so every mutation lands in table decodes and sample lookups.
#include "fuzz/FuzzSupport.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quiet();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    fuzz::TempInput input(fuzz::movieWithTables(fuzz::Bytes(data, data + size), "vide"));
    fuzz::walkSamples(input.path(), data, size);
    fuzz::printAndCopy(input.path());
    return 0;
}
