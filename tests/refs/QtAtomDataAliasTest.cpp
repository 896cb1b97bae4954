#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "quicktime/quicktime.h"
#include "quicktime/refs/QtAtomDataAlias.h"
#include "quicktime/refs/QtAtomDataRefHdr.h"
#include "tests/TestSupport.h"

namespace fs = std::filesystem;

namespace {


constexpr char const* kAliasMovie = "h264_negcts_cslg_alis.mov";
constexpr char const* kAliasPath = "moov.trak.mdia.minf.dinf.dref.alis";

// A directory tree for one test, removed with the object.
class TempDir {
  public:
    TempDir() {
        char pattern[] = "/tmp/qtrefs.XXXXXX";
        char* dir = mkdtemp(pattern);
        m_path = dir ? dir : "/tmp";
    }
    ~TempDir() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    std::string path(std::string const& relative) const {
        fs::path full = fs::path(m_path) / relative;
        fs::create_directories(full.parent_path());
        return full.string();
    }

  private:
    std::string m_path;
};

// A target path "/a/<name>" whose alias needs exactly `needed` bytes in an 'alis' atom: 12 header
// bytes, 150 fixed record bytes, the records "dir" (a: 6 bytes), "abs" and "end" (4 bytes).
Bytes encode(BaseQtAtom const& atom) {
    QtAtomBuffer out(atom.getEncodeSize());
    EXPECT_TRUE(atom.encode(out));
    return Bytes(out.ptrData(), out.ptrData() + out.nOccupied());
}

QtAtomDataAlias const* findAlias(QtAtomRoot const& root) {
    return dynamic_cast<QtAtomDataAlias const*>(root.findAtom(kAliasPath, 0));
}

// Rewrites `root`'s tree with its new sizes into `path`.
void writeMovie(QtAtomRoot const& root, std::string const& path) {
    root.recalcOffset(QtTreeSize(true, 0, 0));
    AutoRefPtr<BasicFileIO> out = BasicFileIO::open(path.c_str(), BasicFileIO::Create);
    ASSERT_TRUE(out);
    ASSERT_TRUE(QtAtomWriter::copyTree(root, *out));
}

// An 'alis' atom around `body`, with flags.
Bytes aliasAtom(unsigned int flags, Bytes const& body) {
    Bytes atom;
    putAtomHeader(atom, static_cast<uint32_t>(12 + body.size()), "alis");
    put32(atom, flags);
    atom.insert(atom.end(), body.begin(), body.end());
    return atom;
}

// The encoded record of a fresh record pointed at `target` from `base`.
Bytes recordBytes(char const* base, char const* target) {
    QtAliasRecord record;
    EXPECT_TRUE(record.setPath(base, target));
    QtAtomBuffer out(16);
    record.encode(out);
    return Bytes(out.ptrData(), out.ptrData() + out.nOccupied());
}

AutoPtr<QtAtomDataAlias> decodeAlias(Bytes& bytes) {
    AutoPtr<QtAtomDataAlias> alias(new QtAtomDataAlias(nullptr));
    QtAtomBuffer in(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    alias->decode(in);
    return alias;
}

}  // namespace

TEST(QtAtomDataAlias, PathSetInAMovieResolvesAfterReadingAndAfterTheMovieMoved) {
    TempDir dir;
    std::string original = dir.path("A/proj/edit/source.mov");
    fs::copy_file(testDataPath(kAliasMovie), original);
    std::string movie = dir.path("A/proj/edit/movie.mov");
    std::string media = dir.path("A/proj/media/day1/clip.mov");
    {
        AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(original.c_str());
        ASSERT_TRUE(root);
        QtAtomDataAlias const* alias = findAlias(*root);
        ASSERT_NE(alias, nullptr);
        ASSERT_TRUE(alias->setPath(movie.c_str(), media.c_str()));
        EXPECT_FALSE(alias->isSelfReference());
        writeMovie(*root, movie);
        EXPECT_EQ(alias->getSize(), QtAtomDataAlias::kReservedSize);
    }
    {
        AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(movie.c_str());
        ASSERT_TRUE(root);
        QtAtomDataAlias const* alias = findAlias(*root);
        ASSERT_NE(alias, nullptr);
        EXPECT_EQ(alias->getSize(), QtAtomDataAlias::kReservedSize);
        EXPECT_EQ(alias->getPath(), media);
        EXPECT_EQ(alias->getAliasRecord().getFrom(), 2);
        EXPECT_EQ(alias->getAliasRecord().getTo(), 3);
    }
    fs::create_directories(dir.path("B/x/y"));
    fs::rename(fs::path(movie).parent_path().parent_path(), fs::path(dir.path("B/x/y")) / "proj");
    std::string moved = dir.path("B/x/y/proj/edit/movie.mov");
    AutoPtr<QtAtomRoot> root = QtAtomReader::readFile(moved.c_str());
    ASSERT_TRUE(root);
    EXPECT_EQ(std::string(findAlias(*root)->getPath()), dir.path("B/x/y/proj/media/day1/clip.mov"));
}

TEST(QtAtomDataAlias, RecordThatCannotBeWrittenBackExactlyIsKeptAsRead) {
    // An odd-length last record whose pad byte is missing at the very end of the atom.
    Bytes body = recordBytes("/a/b/movie.mov", "/a/c/clip.mov");
    body.resize(body.size() - 4);  // drop the end record
    body.push_back(0x00);
    body.push_back(0x0B);  // drive
    body.push_back(0x00);
    body.push_back(0x05);
    for (char c : std::string("    D")) body.push_back(static_cast<unsigned char>(c));
    unsigned int size = static_cast<unsigned int>(body.size());
    body[4] = static_cast<unsigned char>(size >> 8);
    body[5] = static_cast<unsigned char>(size);
    Bytes bytes = aliasAtom(0, body);
    AutoPtr<QtAtomDataAlias> decoded = decodeAlias(bytes);
    QtAtomDataAlias const& alias = *decoded;
    EXPECT_STREQ(alias.getPath(), "D:/a/c/clip.mov");
    EXPECT_EQ(encode(alias), bytes);
}

TEST(QtAtomDataAlias, RecordIsNotReadPastTheAtom) {
    // The record's size field claims more than the atom holds; the next atom's bytes follow.
    Bytes body = recordBytes("/a/b/movie.mov", "/a/c/clip.mov");
    body.resize(150);
    body[4] = 0x10;  // size field 0x10000096
    Bytes bytes = aliasAtom(0, body);
    Bytes next;
    putAtomHeader(next, 12, "url ");
    put32(next, 1);
    bytes.insert(bytes.end(), next.begin(), next.end());
    QtAtomDataAlias alias(nullptr);
    QtAtomBuffer in(bytes.data(), static_cast<unsigned int>(bytes.size()), QtAtomBuffer::Full);
    alias.decode(in);
    EXPECT_EQ(in.bufferOffset(), 162u);
    EXPECT_EQ(alias.getAliasRecord().getFirstVarInfo(), nullptr);
}

TEST(QtAtomDataAlias, DamagedAtomsAlwaysEncodeToTheirOwnSize) {
    // The writer sizes its buffer from the atom's size, so whatever was read must encode to exactly
    // that many bytes. Damage a valid alias at random places and check it each time.
    Bytes body = recordBytes("/a/b/movie.mov", "/a/c/clip.mov");
    body.resize(body.size() + 20, 0);
    Bytes valid = aliasAtom(0, body);
    std::mt19937 random(20240611);
    unsigned int withRecord = 0;
    for (int round = 0; round < 3000; ++round) {
        Bytes bytes = valid;
        bytes.resize(13 + random() % (valid.size() - 12));
        bytes[2] = static_cast<unsigned char>(bytes.size() >> 8);
        bytes[3] = static_cast<unsigned char>(bytes.size());
        for (int hits = random() % 6; hits > 0; --hits)
            bytes[12 + random() % (bytes.size() - 12)] ^= static_cast<unsigned char>(1u << (random() % 8));
        AutoPtr<QtAtomDataAlias> alias = decodeAlias(bytes);
        ASSERT_EQ(alias->getFixedSize() + alias->getVariableSize(), alias->getSize()) << "round " << round;
        ASSERT_EQ(encode(*alias).size(), bytes.size()) << "round " << round;
        withRecord += alias->getAliasRecord().getFirstVarInfo() != nullptr;
    }
    EXPECT_GT(withRecord, 100u);  // the damage must not keep every record from being read
}
