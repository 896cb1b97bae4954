// Fuzz target: sample descriptions and their extension atoms. The first byte picks the track's
// handler (video, sound, timecode, text, other); the rest is the body of its 'stsd' after the
// version and flags (the entry count, then the entries). The descriptions are read in a movie,
// printed, asked what info asks them, copied, and their extension atoms are also parsed alone.
#include "fuzz/FuzzSupport.h"
#include "quicktime/descriptions/QtAtomSampleDesc.h"
#include "quicktime/descriptions/QtAudioSampleDesc.h"
#include "quicktime/descriptions/QtVideoSampleDesc.h"
#include "quicktime/descriptions/Qtx.h"
#include "quicktime/descriptions/QtxAtom.h"

namespace {

void askDescriptions(std::string const& path) {
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(path.c_str());
    if (!root) return;
    auto const* stsd = dynamic_cast<QtAtomSampleDesc const*>(root->findAtom("moov.trak.mdia.minf.stbl.stsd", 0));
    if (!stsd) return;
    for (unsigned int n = 1; n <= 4; ++n) {
        if (QtVideoSampleDesc const* video = stsd->getVideoDesc(n)) {
            Qtx const& extensions = video->getExtensions();
            (void)extensions.toString();
            (void)extensions.getNumFields(1);
            (void)extensions.isLittleEndian(false);
            for (QtAtomIdType type : {qtId("pasp"), qtId("colr"), qtId("fiel"), qtId("clap"), qtId("avcC")})
                (void)extensions.findAtom(type);
        }
        if (QtAudioSampleDesc const* audio = stsd->getAudioDesc(n)) (void)audio->getExtensions().toString();
    }
}

void parseExtensionsAlone(uint8_t const* data, size_t size) {
    Qtx extensions;
    std::vector<unsigned char> bytes(data, data + size);
    QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    extensions.decode(buffer, static_cast<unsigned int>(bytes.size()));
    (void)extensions.toString();
    std::vector<unsigned char> out(extensions.getSize() + 16);
    QtAtomBuffer encoded(out.data(), static_cast<unsigned int>(out.size()), QtAtomBuffer::Empty);
    extensions.encode(encoded);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::quiet();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size < 1) return 0;
    static char const* const kHandlers[] = {"vide", "soun", "tmcd", "text", "sbtl", "m2v ", "hint", "meta"};
    char const* handler = kHandlers[data[0] % 8];
    fuzz::Bytes body = fuzz::join({fuzz::Bytes(4, 0), fuzz::Bytes(data + 1, data + size)});
    fuzz::TempInput input(fuzz::movieWithTables(fuzz::atom("stsd", body), handler));
    askDescriptions(input.path());
    fuzz::printAndCopy(input.path());
    parseExtensionsAlone(data + 1, size - 1);
    return 0;
}
