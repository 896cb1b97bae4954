#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "quicktime/refs/QtParsedPath.h"

namespace {

std::vector<std::string> elems(QtParsedPath const& path) {
    std::vector<std::string> out;
    for (unsigned int i = 0; i < path.getElemCount(); ++i) out.push_back(path.getElem(i));
    return out;
}

using Elems = std::vector<std::string>;

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
    Expected const cases[] = {
        {"C:\\dir\\file.mov", OsEnvDrive, "C", true, false, {"dir", "file.mov"}, "C:/dir/file.mov"},
        {"C:\\dir\\file.mov", OsEnvUnix, "NONAME", false, true, {"C:\\dir\\file.mov"}, "./C:\\dir\\file.mov"},
        {"C:\\dir\\file.mov",
         OsEnvMacOSX,
         "NONAME",
         false,
         true,
         {"C:\\dir\\file.mov"},
         "./C:\\dir\\file.mov"},
        {"C:\\dir\\file.mov", OsEnvColon, "C", false, false, {"\\dir\\file.mov"}, "C:\\dir\\file.mov"},
        {"Media:clips:a.mov",
         OsEnvDrive,
         "NONAME",
         false,
         true,
         {"Media:clips:a.mov"},
         "./Media:clips:a.mov"},
        {"Media:clips:a.mov", OsEnvUnix, "NONAME", false, true, {"Media:clips:a.mov"}, "./Media:clips:a.mov"},
        {"Media:clips:a.mov",
         OsEnvMacOSX,
         "NONAME",
         false,
         true,
         {"Media:clips:a.mov"},
         "./Media:clips:a.mov"},
        {"Media:clips:a.mov", OsEnvColon, "Media", false, false, {"clips", "a.mov"}, "Media:clips:a.mov"},
        {"1:\\dir", OsEnvDrive, "NONAME", false, true, {"1:", "dir"}, "./1:/dir"},  // no drive letter
        {"a//b", OsEnvDrive, "NONAME", false, true, {"a", "b"}, "./a/b"},
        {"a//b", OsEnvUnix, "NONAME", false, true, {"a", "b"}, "./a/b"},
        {"a//b", OsEnvMacOSX, "NONAME", false, true, {"a", "b"}, "./a/b"},
        {"a//b", OsEnvColon, "a//b", false, false, {}, "a//b"},
        {"/a/c/clip.mov", OsEnvDrive, "NONAME", false, true, {"a", "c", "clip.mov"}, "./a/c/clip.mov"},
        {"/a/c/clip.mov", OsEnvUnix, "NONAME", false, false, {"a", "c", "clip.mov"}, "/a/c/clip.mov"},
        {"/a/c/clip.mov", OsEnvMacOSX, "NONAME", false, false, {"a", "c", "clip.mov"}, "/a/c/clip.mov"},
        {"/a/c/clip.mov", OsEnvColon, "/a/c/clip.mov", false, false, {}, "/a/c/clip.mov"},
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
