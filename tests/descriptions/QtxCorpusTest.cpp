// The extension areas of the real movies in tests/data. Each area is located through the file's
// atoms.txt (written by an independent reader): the atoms listed one level below an 'stsd' entry are
// the area's atoms, those one level deeper are the contents of 'wave'. Every area must parse into
// exactly those atoms, re-encode byte for byte, and agree with what ffprobe reports.
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "framework/QtAtomBuffer.h"
#include "quicktime/descriptions/Qtx.h"
#include "quicktime/descriptions/QtxACLR.h"
#include "quicktime/descriptions/QtxARES.h"
#include "quicktime/descriptions/QtxAtom.h"
#include "quicktime/descriptions/QtxAvcDecoderInfo.h"
#include "quicktime/descriptions/QtxCleanAperture.h"
#include "quicktime/descriptions/QtxPixelAspectRatio.h"
#include "tests/TestSupport.h"

namespace {

struct ListedAtom {
    unsigned int depth;  // 1: directly in the area, 2: inside 'wave'
    QtAtomIdType type;
    unsigned int size;
    unsigned long offset;
};

struct ExtensionArea {
    std::string movie;
    std::string format;
    unsigned long offset = 0;  // file offset of the first extension byte
    unsigned int length = 0;
    std::vector<ListedAtom> atoms;
    unsigned int unparsedBytes = 0;  // "(N bytes that are not an atom)"
};

QtAtomIdType typeFromListing(std::string const& text) {
    if (text == "0x00000000") return 0;
    if (text.size() != 4) return 0xFFFFFFFF;
    QtAtomIdType type = 0;
    for (char c : text) type = (type << 8) | static_cast<unsigned char>(c);
    return type;
}

size_t indentOf(std::string const& line) { return line.find_first_not_of(' '); }

// Every 'stsd' entry of the movie that is followed by at least one extension atom.
std::vector<ExtensionArea> extensionAreas(std::string const& movie) {
    static std::regex const entryLine(R"(#\d+ (.{4}): (\d+)b@(\d+))");
    static std::regex const atomLine(R"((\S+): (\d+)b@(\d+))");
    static std::regex const gapLine(R"(\((\d+) bytes that are not an atom @(\d+)\))");
    std::vector<ExtensionArea> areas;
    std::ifstream listing(testDataPath(movie + ".atoms.txt"));
    std::string line;
    ExtensionArea* area = nullptr;
    size_t entryIndent = 0;
    unsigned long entryEnd = 0;
    while (std::getline(listing, line)) {
        std::smatch match;
        size_t indent = indentOf(line);
        std::string text = indent == std::string::npos ? "" : line.substr(indent);
        if (std::regex_match(text, match, entryLine)) {
            areas.push_back({movie, match[1], 0, 0, {}, 0});
            area = &areas.back();
            entryIndent = indent;
            entryEnd = std::stoul(match[3]) + std::stoul(match[2]);
            continue;
        }
        if (!area || indent == std::string::npos || indent <= entryIndent) {
            area = nullptr;
            continue;
        }
        unsigned int depth = static_cast<unsigned int>((indent - entryIndent) / 2);
        if (std::regex_match(text, match, gapLine)) {
            if (area->atoms.empty()) area->offset = std::stoul(match[2]);
            area->unparsedBytes += static_cast<unsigned int>(std::stoul(match[1]));
        } else if (std::regex_match(text, match, atomLine)) {
            if (area->atoms.empty() && area->unparsedBytes == 0) area->offset = std::stoul(match[3]);
            area->atoms.push_back({depth, typeFromListing(match[1]),
                                   static_cast<unsigned int>(std::stoul(match[2])), std::stoul(match[3])});
        }
        area->length = static_cast<unsigned int>(entryEnd - area->offset);
    }
    std::erase_if(areas, [](ExtensionArea const& a) { return a.atoms.empty(); });
    return areas;
}

std::vector<ExtensionArea> allCorpusAreas() {
    std::vector<ExtensionArea> all;
    for (std::string const& movie : corpusMovies()) {
        std::vector<ExtensionArea> areas = extensionAreas(movie);
        all.insert(all.end(), areas.begin(), areas.end());
    }
    return all;
}

std::vector<unsigned char> areaBytes(ExtensionArea const& area) {
    std::vector<unsigned char> file = readFileBytes(testDataPath(area.movie));
    if (area.offset + area.length > file.size()) return {};
    return std::vector<unsigned char>(file.begin() + static_cast<long>(area.offset),
                                      file.begin() + static_cast<long>(area.offset + area.length));
}

// The parsed atoms in listing order, with their depth and file offset.
void flatten(Qtx::Atom const* first, unsigned int depth, unsigned long offset, std::vector<ListedAtom>& out) {
    for (Qtx::Atom const* atom = first; atom; atom = atom->getSibling()) {
        out.push_back({depth, atom->getType(), atom->getSize(), offset});
        flatten(atom->getChild(), depth + 1, offset + Qtx::Atom::kHeaderSize, out);
        offset += atom->getSize();
    }
}

class QtxCorpus : public ::testing::Test {
protected:
    void SetUp() override {
        areas = allCorpusAreas();
        ASSERT_GE(areas.size(), 12u) << "the listings of tests/data should name the extension areas";
    }
    ExtensionArea const& areaOf(std::string const& movie, std::string const& format) {
        for (ExtensionArea const& area : areas)
            if (area.movie == movie && area.format == format) return area;
        ADD_FAILURE() << "no extension area for " << movie << " " << format;
        return areas.front();
    }
    std::vector<ExtensionArea> areas;
};

TEST_F(QtxCorpus, EveryAreaParsesIntoTheListedAtoms) {
    for (ExtensionArea const& area : areas) {
        SCOPED_TRACE(area.movie + " " + area.format);
        std::vector<unsigned char> bytes = areaBytes(area);
        ASSERT_EQ(bytes.size(), area.length);
        QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
        Qtx qtx;
        qtx.decode(buffer, area.length);
        EXPECT_EQ(buffer.nOccupied(), 0u) << "the container keeps every byte of the area";

        std::vector<ListedAtom> parsed;
        flatten(qtx.getRoot().getChild(), 1, area.offset, parsed);
        ASSERT_EQ(parsed.size(), area.atoms.size()) << qtx.toString().get();
        for (size_t i = 0; i < parsed.size(); ++i) {
            EXPECT_EQ(parsed[i].depth, area.atoms[i].depth) << i;
            EXPECT_EQ(parsed[i].type, area.atoms[i].type) << i;
            EXPECT_EQ(parsed[i].size, area.atoms[i].size) << i;
            EXPECT_EQ(parsed[i].offset, area.atoms[i].offset) << i;
        }
        EXPECT_EQ(qtx.getPaddingSize(), area.unparsedBytes);
    }
}

TEST_F(QtxCorpus, DecodedValuesAgreeWithFfprobe) {
    auto decoded = [&](std::string const& movie, std::string const& format) {
        auto qtx = std::make_unique<Qtx>();
        std::vector<unsigned char> bytes = areaBytes(areaOf(movie, format));
        QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
        qtx->decode(buffer, static_cast<unsigned int>(bytes.size()));
        return qtx;
    };

    // avc1: ffprobe says High profile (100), level 13 (1.3 as 13), 1:1 pixels.
    auto h264 = decoded("h264_bframes_aac_tc.mov", "avc1");
    auto const* avc = dynamic_cast<Qtx::AvcDecoderInfo const*>(h264->findAtom(qtId("avcC")));
    ASSERT_NE(avc, nullptr);
    EXPECT_EQ(avc->getProfile(), 100);
    EXPECT_EQ(avc->getLevel(), 13);
    EXPECT_EQ(avc->getSpsLength(), 25u);
    EXPECT_EQ(avc->getPpsLength(), 6u);
    EXPECT_EQ(avc->getTrailing().getSize(), 4u) << "the High-profile fields after the PPS are kept";
    EXPECT_EQ(avc->getAvcSpsPpsLength(), 4u + 25 + 4 + 6);
    EXPECT_EQ(avc->getAvcSpsPps()[4], 0x67) << "an SPS NAL unit follows its 4-byte length";
    auto const* pasp = dynamic_cast<Qtx::PixelAspectRatio const*>(h264->findAtom(qtId("pasp")));
    ASSERT_NE(pasp, nullptr);
    EXPECT_EQ(pasp->getHSpacing(), pasp->getVSpacing());

    // mp4a: the 'esds' inside 'wave' describes AAC at 48 kHz (frequency index 3), 2 channels.
    auto aac = decoded("h264_bframes_aac_tc.mov", "mp4a");
    Qtx::Atom const* esds = aac->findAtom(qtId("esds"));
    ASSERT_NE(esds, nullptr);
    ASSERT_EQ(esds->getEsdsLength(), 42u);
    unsigned char const* config = esds->getEsds() + 31;
    EXPECT_EQ(config[-5], 0x05) << "decoder specific information";
    EXPECT_EQ(config[0] >> 3, 2) << "AAC LC";
    EXPECT_EQ(((config[0] & 7) << 1) | (config[1] >> 7), 3) << "48000 Hz";
    EXPECT_EQ((config[1] >> 3) & 15, 2) << "stereo";
    EXPECT_FALSE(aac->isLittleEndian(false));

    // in24: 'enda' inside 'wave' overrides the big-endian default.
    EXPECT_TRUE(decoded("mjpeg_pcm24le_dftc.mov", "in24")->isLittleEndian(false));

    // 2vuy: bt709 colour, two fields top first ("tt"), 1:1, a 64x48 clean aperture.
    auto uyvy = decoded("uyvy_clap_lpcm.mov", "2vuy");
    Qtx::Atom const* colr = uyvy->findAtom(qtId("colr"));
    ASSERT_NE(colr, nullptr);
    EXPECT_EQ(colr->getColorParamType(), qtId("nclc"));
    EXPECT_EQ(colr->getPrimaries(), ColorPrimariesBT709);
    EXPECT_EQ(colr->getTransferFunction(), ColorTransferBT709);
    EXPECT_EQ(colr->getMatrix(), ColorMatrixBT709);
    EXPECT_EQ(uyvy->getNumFields(0), 2);
    EXPECT_EQ(uyvy->findAtom(qtId("fiel"))->getDetail(), FieldDetailTopFirst);
    auto const* clap = dynamic_cast<Qtx::CleanAperture const*>(uyvy->findAtom(qtId("clap")));
    ASSERT_NE(clap, nullptr);
    EXPECT_DOUBLE_EQ(clap->getAptWidth(), 64.0);
    EXPECT_DOUBLE_EQ(clap->getAptHeight(), 48.0);
    EXPECT_DOUBLE_EQ(clap->getHorizOffset(), 0.0);

    // AVdn: 4:3 pixels, bt709, and the private atoms of the codec (1080 lines, progressive).
    auto dnx = decoded("dnxhd_avid.mov", "AVdn");
    pasp = dynamic_cast<Qtx::PixelAspectRatio const*>(dnx->findAtom(qtId("pasp")));
    ASSERT_NE(pasp, nullptr);
    EXPECT_EQ(pasp->getHSpacing(), 4u);
    EXPECT_EQ(pasp->getVSpacing(), 3u);
    EXPECT_EQ(dnx->findAtom(qtId("colr"))->getPrimaries(), ColorPrimariesBT709);
    auto const* ares = dynamic_cast<Qtx::ARES const*>(dnx->findAtom(qtId("ARES")));
    ASSERT_NE(ares, nullptr);
    EXPECT_EQ(ares->getDnxHDCompressionID(), 1253u);
    EXPECT_EQ(ares->getEncodedHeight(), 1080u);
    EXPECT_EQ(ares->getNumFields(), 1u);
    EXPECT_EQ(ares->getFormat(), 5u);
    EXPECT_EQ(ares->getBitDepth(), 8u);
    EXPECT_EQ(dnx->getNumFields(0), 1) << "the field count comes from ARES when there is no fiel";
    auto const* aclr = dynamic_cast<Qtx::ACLR const*>(dnx->findAtom(qtId("ACLR")));
    ASSERT_NE(aclr, nullptr);
    EXPECT_EQ(aclr->getColor(), 1u);

    // AVdh: 'ADHR' is not interpreted and is kept whole.
    auto dnxhr = decoded("dnxhr_adhr.mov", "AVdh");
    Qtx::Atom const* adhr = dnxhr->findAtom(qtId("ADHR"));
    ASSERT_NE(adhr, nullptr);
    EXPECT_EQ(adhr->getTrailing().getSize(), 24u);
    EXPECT_STREQ(adhr->toString().get(), "ADHR=?");
}

}  // namespace
