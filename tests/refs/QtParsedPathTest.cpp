#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quicktime/refs/QtParsedPath.h"

namespace {

using Elems = std::vector<std::string>;

Elems elems(QtParsedPath const& path) {
    Elems out;
    for (unsigned int i = 0; i < path.getElemCount(); ++i) out.push_back(path.getElem(i));
    return out;
}

struct Expected {
    char const* path;
    OsEnvType env;
    char const* root;
    bool hasDrive;
    bool relative;
    Elems elems;
    char const* rendered;  // getPath under the same convention
};

}  // namespace

TEST(QtParsedPath, ParsesAndRendersTheSamplePathsUnderEveryConvention) {
    auto const D = OsEnvDrive, U = OsEnvUnix, M = OsEnvMacOSX, C = OsEnvColon;
    char const* const N = "NONAME";
    Expected const cases[] = {
        {"C:\\dir\\file.mov", D, "C", true, false, {"dir", "file.mov"}, "C:/dir/file.mov"},
        {"C:\\dir\\file.mov", U, N, false, true, {"C:\\dir\\file.mov"}, "./C:\\dir\\file.mov"},
        {"C:\\dir\\file.mov", M, N, false, true, {"C:\\dir\\file.mov"}, "./C:\\dir\\file.mov"},
        {"C:\\dir\\file.mov", C, "C", false, false, {"\\dir\\file.mov"}, "C:\\dir\\file.mov"},
        {"Media:clips:a.mov", D, N, false, true, {"Media:clips:a.mov"}, "./Media:clips:a.mov"},
        {"Media:clips:a.mov", U, N, false, true, {"Media:clips:a.mov"}, "./Media:clips:a.mov"},
        {"Media:clips:a.mov", M, N, false, true, {"Media:clips:a.mov"}, "./Media:clips:a.mov"},
        {"Media:clips:a.mov", C, "Media", false, false, {"clips", "a.mov"}, "Media:clips:a.mov"},
        {"1:\\dir", D, N, false, true, {"1:", "dir"}, "./1:/dir"},  // no drive letter
        {"a//b", D, N, false, true, {"a", "b"}, "./a/b"},
        {"a//b", U, N, false, true, {"a", "b"}, "./a/b"},
        {"a//b", M, N, false, true, {"a", "b"}, "./a/b"},
        {"a//b", C, "a//b", false, false, {}, "a//b"},
        {"/a/c/clip.mov", D, N, false, true, {"a", "c", "clip.mov"}, "./a/c/clip.mov"},
        {"/a/c/clip.mov", U, N, false, false, {"a", "c", "clip.mov"}, "/a/c/clip.mov"},
        {"/a/c/clip.mov", M, N, false, false, {"a", "c", "clip.mov"}, "/a/c/clip.mov"},
        {"/a/c/clip.mov", C, "/a/c/clip.mov", false, false, {}, "/a/c/clip.mov"},
    };
    for (Expected const& e : cases) {
        SCOPED_TRACE(std::string(e.path) + " under " + std::to_string(e.env));
        QtParsedPath path(e.path, e.env);
        EXPECT_STREQ(path.getRoot(), e.root);
        EXPECT_EQ(path.hasDrive(), e.hasDrive);
        EXPECT_EQ(path.isRelative(), e.relative);
        EXPECT_EQ(elems(path), e.elems);
        EXPECT_STREQ(path.getPath(e.env).get(), e.rendered);
    }
}

TEST(QtParsedPath, ServerRootsKeepTheirLeadingSeparators) {
    QtParsedPath slashes("//server/share/f.mov", OsEnvDrive);
    EXPECT_STREQ(slashes.getRoot(), "//server");
    EXPECT_EQ(elems(slashes), (Elems{"share", "f.mov"}));
    EXPECT_STREQ(slashes.getPath(OsEnvDrive).get(), "//server/share/f.mov");

    QtParsedPath backslashes("\\\\server\\share\\f.mov", OsEnvDrive);
    EXPECT_STREQ(backslashes.getRoot(), "\\\\server");
    EXPECT_FALSE(backslashes.isRelative());
    EXPECT_STREQ(backslashes.getPath(OsEnvDrive).get(), "\\\\server/share/f.mov");
}
