// The movie structure atoms against the real movies of tests/data: each atom decodes and encodes
// back to the bytes of the file (the aperture dimensions to their settled fraction form), a copy
// made by `qtmovie copy` equals the original but for those words, and `qtmovie dump` prints each
// atom with its own printout.
#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"
#include "tests/atoms/AtomBytes.h"

namespace {

// The types whose classes are the movie structure atoms, as the factory makes them.
std::set<std::string> const kStructureTypes = {"mvhd", "tkhd", "mdhd", "hdlr", "vmhd", "smhd",
                                               "gmin", "tcmi", "hmhd", "elst", "tref", "ftyp",
                                               "clef", "prof", "enof", "iods", "sean", "m12v"};

bool isStructureAtom(BaseQtAtom const* atom) {
    return dynamic_cast<QtAtomMvhd const*>(atom) || dynamic_cast<QtAtomTrakHdr const*>(atom) ||
           dynamic_cast<QtAtomMediaHdr const*>(atom) || dynamic_cast<QtAtomHandler const*>(atom) ||
           dynamic_cast<QtAtomVideoInf const*>(atom) || dynamic_cast<QtAtomSoundInf const*>(atom) ||
           dynamic_cast<QtAtomBaseInf const*>(atom) || dynamic_cast<QtAtomTimecodeInf const*>(atom) ||
           dynamic_cast<QtAtomHintMediaHdr const*>(atom) || dynamic_cast<QtAtomEditList const*>(atom) ||
           dynamic_cast<QtAtomTrakRef const*>(atom) || dynamic_cast<QtAtomFileType const*>(atom) ||
           dynamic_cast<QtAtomApertDimensions const*>(atom) || dynamic_cast<QtAtomObjectDesc const*>(atom) ||
           dynamic_cast<QtAtomValueTriple const*>(atom);
}

uint32_t wordAt(Bytes const& bytes, size_t at) {
    return (uint32_t(bytes[at]) << 24) | (uint32_t(bytes[at + 1]) << 16) | (uint32_t(bytes[at + 2]) << 8) |
           bytes[at + 3];
}

void setWordAt(Bytes& bytes, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<unsigned char>(v >> (24 - 8 * i));
}

// The file's bytes with every aperture dimension rewritten in the fraction form its class writes.
Bytes withApertureFractions(Bytes file, BaseQtAtom const* atom) {
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
        if (dynamic_cast<QtAtomApertDimensions const*>(child)) {
            for (size_t at : {child->getFileOffset() + 12, child->getFileOffset() + 16})
                setWordAt(file, at, QtAtomApertDimensions::fractionOf(wordAt(file, at)).encoded4ByteValue());
        }
        file = withApertureFractions(std::move(file), child);
    }
    return file;
}

// Type counts of the structure atoms listed in a movie's .atoms.txt.
std::map<std::string, int> listedStructureAtoms(std::string const& movie) {
    std::map<std::string, int> counts;
    std::istringstream lines(readFileText(testDataPath(movie + ".atoms.txt")));
    for (std::string line; std::getline(lines, line);) {
        size_t start = line.find_first_not_of(' ');
        if (start == std::string::npos || line.compare(start, 1, "#") == 0) continue;
        std::string type = line.substr(start, 4);
        if (kStructureTypes.count(type)) ++counts[type];
    }
    return counts;
}

void collect(BaseQtAtom const* atom, std::vector<BaseQtAtom const*>& out) {
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
        if (isStructureAtom(child)) out.push_back(child);
        collect(child, out);
    }
}

std::string runQtMovie(std::string const& arguments) {
    std::string command = std::string(QT_QTMOVIE_PATH) + " " + arguments + " 2>&1";
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return "";
    std::string output;
    char chunk[4096];
    while (size_t n = fread(chunk, 1, sizeof chunk, pipe)) output.append(chunk, n);
    pclose(pipe);
    return output;
}

}  // namespace

TEST(MovieStructureRoundTrip, EveryStructureAtomOfEveryMovieEncodesBackToItsBytes) {
    for (std::string const& movie : corpusMovies()) {
        SCOPED_TRACE(movie);
        AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(testDataPath(movie).c_str());
        ASSERT_TRUE(root);
        Bytes file = readFileBytes(testDataPath(movie));
        Bytes expectedFile = withApertureFractions(file, root.get());
        std::vector<BaseQtAtom const*> atoms;
        collect(root.get(), atoms);
        std::map<std::string, int> found;
        for (BaseQtAtom const* atom : atoms) {
            std::string type = atom->idName().render();
            ++found[type];
            Bytes encoded = encodeToBytes(*atom);
            ASSERT_EQ(encoded.size(), atom->getEncodeSize()) << atom->getAtomPath().get();
            size_t at = atom->getFileOffset();
            ASSERT_LE(at + encoded.size(), file.size());
            EXPECT_EQ(encoded, Bytes(expectedFile.begin() + at, expectedFile.begin() + at + encoded.size()))
                << atom->getAtomPath().get();
        }
        // Every structure atom the file holds was made as its own class and checked.
        EXPECT_EQ(found, listedStructureAtoms(movie));
        EXPECT_GE(found["mvhd"], 1);
    }
}

TEST(MovieStructureRoundTrip, QtMovieCopyReproducesEveryMovie) {
    // Unchanged atoms are copied as they stand, so even the aperture fractions survive a copy.
    for (std::string const& movie : corpusMovies()) {
        SCOPED_TRACE(movie);
        TempFile copy;
        std::string output = runQtMovie("copy " + testDataPath(movie) + " " + copy.path());
        EXPECT_EQ(output, "");
        EXPECT_TRUE(readFileBytes(copy.path()) == readFileBytes(testDataPath(movie)));
    }
}

TEST(MovieStructureRoundTrip, QtMovieDumpShowsEachStructureAtomWithItsOwnPrintout) {
    std::string dump = runQtMovie("dump " + testDataPath("h264_bframes_aac_tc.mov"));
    for (char const* line : {
             "  ftyp: 20b@0,major_brand=qt  ,minor_version=0x200,compatible_brands={qt  }\n",
             "    mvhd: 108b@499950,v0,f=0,1000hz,len=10000(movie)=00:00:10.000,next trak=4\n",
             "      tkhd: 92b@500066,v0,f=3,trak1,layer=0,\n        len=00:00:10.000(10000:movie),320x240, "
             "enabled,movie\n",
             "        elst: 28b@500166,v0,f=0,cap=1,nedits=1\n",
             "      tref: 20b@500194,tmcd[1]=3\n",
             "        mdhd: 32b@500222,v0,f=0,12800hz,len=128000=00:00:10.000,lang=32767,q=0\n",
             "        hdlr: 45b@500254,v0,f=0,type=mhlr.vide,VideoHandler\n",
             "          vmhd: 20b@500307,v0,f=1,mode0,rgb=0x0/0/0\n",
             "          hdlr: 44b@500327,v0,f=0,type=dhlr.url ,DataHandler\n",
             "          smhd: 16b@504384,v0,f=0,balance=0x0\n",
             "            gmin: 24b@508684,v0,f=0,mode64,rgb=0x8000/8000/8000,bal=0x0\n",
             "              tcmi: 46b@508760,v0,f=0,f=0/0x0/12pt,\n                Lucida "
             "Grande,fg=0x0/0/0,bg=0x0/ffff/ffff\n",
         })
        EXPECT_NE(dump.find(line), std::string::npos) << line;

    std::string aperture = runQtMovie("dump " + testDataPath("dnxhd_avid.mov"));
    for (char const* line :
         {"        clef: 20b@942977,v0,f=0,2560x1080\n", "        prof: 20b@942997,v0,f=0,2560x1080\n",
          "        enof: 20b@943017,v0,f=0,1920x1080\n"})
        EXPECT_NE(aperture.find(line), std::string::npos) << line;
}

TEST(MovieStructureRoundTrip, FactoryMakesEachStructureTypeAsItsOwnClass) {
    for (std::string const& type : kStructureTypes) {
        SCOPED_TRACE(type);
        QtAtomHeader parent(qtId("trak"), nullptr);
        Bytes header;
        putAtomHeader(header, 200, type.c_str());
        header.resize(200, 0);
        QtAtomBuffer buffer(header.data(), static_cast<unsigned int>(header.size()), QtAtomBuffer::Full);
        BaseQtAtom prototype;
        prototype.decode(buffer);
        BaseQtAtom const* made = prototype.createActual(&parent);
        ASSERT_NE(made, nullptr);
        EXPECT_TRUE(isStructureAtom(made));
        EXPECT_EQ(made->getSize(), 200u);
    }
}
