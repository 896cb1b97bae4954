// Fuzz target: alias records and paths. The input gives a movie path, a target path and then the
// bytes of an alias record. The record is decoded alone (printed, resolved against the movie path,
// encoded back) and inside an 'alis' data reference of a movie; the paths are parsed under every
// convention, rendered under every other, and used to rebuild the record.
#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz/FuzzSupport.h"
#include "quicktime/refs/QtAliasRecord.h"
#include "quicktime/refs/QtParsedPath.h"

namespace {

constexpr OsEnvType kConventions[] = {OsEnvDrive, OsEnvUnix, OsEnvMacOSX, OsEnvColon};

void parsePaths(std::string const& first, std::string const& second) {
    for (OsEnvType from : kConventions) {
        QtParsedPath a(first.c_str(), from);
        QtParsedPath b(second.c_str(), from);
        for (OsEnvType to : kConventions) {
            (void)a.getPath(to);
            (void)a.getPath(to, 1);
            (void)a.getPathTail(to, 2);
            for (unsigned int i = 0; i < a.getElemCount() && i < 4; ++i) (void)a.elemEqual(i, b, to);
        }
    }
}

void useRecord(std::vector<unsigned char> record, std::string const& moviePath, std::string const& target) {
    QtAliasRecord alias;
    QtAtomBuffer buffer(record.data(), static_cast<unsigned int>(record.size()), QtAtomBuffer::Full);
    if (!alias.decode(buffer)) return;
    alias.show(2);
    (void)alias.getPath(moviePath.c_str());
    (void)alias.getPath(nullptr);
    std::vector<unsigned char> out(150 + alias.getVariableSize());
    QtAtomBuffer encoded(out.data(), static_cast<unsigned int>(out.size()), QtAtomBuffer::Empty);
    alias.encode(encoded);
    if (alias.setPath(moviePath.c_str(), target.c_str())) {
        std::vector<unsigned char> rebuilt(150 + alias.getVariableSize());
        QtAtomBuffer again(rebuilt.data(), static_cast<unsigned int>(rebuilt.size()), QtAtomBuffer::Empty);
        alias.encode(again);
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quiet();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    FuzzedDataProvider provider(data, size);
    std::string moviePath = provider.ConsumeRandomLengthString(256);
    std::string target = provider.ConsumeRandomLengthString(256);
    std::vector<unsigned char> record = provider.ConsumeRemainingBytes<unsigned char>();
    parsePaths(moviePath, target);
    useRecord(record, moviePath, target);

    fuzz::Bytes alis = fuzz::atom("alis", fuzz::join({fuzz::Bytes(4, 0), record}));
    fuzz::Bytes dinf = fuzz::atom("dinf", fuzz::atom("dref", fuzz::join({fuzz::Bytes{0, 0, 0, 0, 0, 0, 0, 1}, alis})));
    fuzz::TempInput input(fuzz::movieWithTables({}, "vide", dinf));
    fuzz::printAndCopy(input.path());
    return 0;
}
