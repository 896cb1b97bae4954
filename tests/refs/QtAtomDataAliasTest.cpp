#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"

namespace fs = std::filesystem;

namespace {

constexpr char const* kAliasMovie = "h264_negcts_cslg_alis.mov";
constexpr char const* kAliasPath = "moov.trak.mdia.minf.dinf.dref.alis";

// A directory tree for one test, removed with the object.
struct TempDir {
    std::string root = [] {
        char pattern[] = "/tmp/qtrefs.XXXXXX";
        return std::string(mkdtemp(pattern) ? pattern : "/tmp/qtrefs.unmade");
    }();
    ~TempDir() {
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
    std::string path(std::string const& relative) const {
        fs::path full = fs::path(root) / relative;
        fs::create_directories(full.parent_path());
        return full.string();
    }
};

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

TEST(QtAtomDataAlias, RecordIsNotReadPastTheAtom) {
    // The record's size field claims more than the atom holds; the next atom's bytes follow.
    QtAliasRecord record;
    ASSERT_TRUE(record.setPath("/a/b/movie.mov", "/a/c/clip.mov"));
    QtAtomBuffer out(16);
    record.encode(out);
    Bytes body(out.ptrData(), out.ptrData() + 150);
    body[4] = 0x10;  // size field 0x10000096
    QtAtomDataAlias alias(nullptr);
    unsigned int consumed = 0;
    decodeFrom(alias, concat({atomBytes("alis", concat({words({0}), body})), atomBytes("url ", words({1}))}), &consumed);
    EXPECT_EQ(consumed, 162u);
    EXPECT_EQ(alias.getAliasRecord().getFirstVarInfo(), nullptr);
}

TEST(QtAtomDataAlias, ZeroPaddingAfterTheRecordIsWrittenBack) {
    QtAliasRecord record;
    ASSERT_TRUE(record.setPath("/a/b/movie.mov", "/a/c/clip.mov"));
    QtAtomBuffer out(16);
    record.encode(out);
    Bytes atom = atomBytes("alis", concat({words({0}), Bytes(out.ptrData(), out.ptrEnd()), zeros(6)}));
    QtAtomDataAlias alias(nullptr);
    ASSERT_TRUE(decodeFrom(alias, atom));
    EXPECT_EQ(alias.getPadding(), 6u);
    EXPECT_EQ(encodeToBytes(alias), atom);
}
