#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <string>

#include "framework/PathParser.h"

TEST(PathParser, RerootPlacesARelativePathBelowTheBaseAndResolvesDots) {
    PathParser path("./clips/../media//a.mov");
    ASSERT_TRUE(path.reroot("/vol/project/"));
    EXPECT_EQ(path.getPath(1), "/vol/project/media/a.mov");
    EXPECT_STREQ(path.getPath(), "/vol/project/media/a.mov");
    EXPECT_STREQ(path.getName(), "a.mov");
    EXPECT_STREQ(path.getDirectory(), "/vol/project/media/");
}

TEST(PathParser, RerootNormalisesAnAbsolutePathAndStopsAtTheRoot) {
    PathParser path("/../a/./b/../../../c/");
    ASSERT_TRUE(path.reroot("/ignored"));
    EXPECT_EQ(path.getPath(1), "/c");
    PathParser root("/..");
    ASSERT_TRUE(root.reroot());
    EXPECT_EQ(root.getPath(1), "/");
}

TEST(PathParser, TrimTailDropsTrailingElementsAndStopsAtTheRoot) {
    PathParser path("/a/b/movie.mov");
    EXPECT_TRUE(path.trimTail(2));
    EXPECT_EQ(path.getPath(1), "/a");
    EXPECT_FALSE(path.trimTail(3));
    EXPECT_EQ(path.getPath(1), "/");
    PathParser relative("a/b");
    EXPECT_TRUE(relative.trimTail(2));
    EXPECT_EQ(relative.getPath(1), ".");
}

TEST(PathParser, RendersTheColonForm) {
    PathParser path("/Media/clips/a.mov");
    EXPECT_EQ(path.getPath(3), "Media:clips:a.mov");
    EXPECT_EQ(PathParser("clips/a.mov").getPath(3), ":clips:a.mov");
}
