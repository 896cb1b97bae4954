#include <gtest/gtest.h>

#include "quicktime/atoms/QtIdName.h"

TEST(QtIdName, RendersPrintableIdsAndMarksTheOthers) {
    struct Case {
        uint32_t id;
        bool valid;
        char const* text;
    } const cases[] = {
        {0x75647461u, true, "udta"},
        {0x75726C20u, true, "url "},
        {0xA96E616Du, true, "@nam"},  // a leading copyright sign
        {0x00016162u, false, "??ab(62.61.01.00)"},
        {0x616200A9u, false, nullptr},  // the sign anywhere else
        {0xA9A96162u, false, nullptr},
    };
    for (Case const& c : cases) {
        QtIdName name(c.id);
        EXPECT_EQ(name.valid(), c.valid) << std::hex << c.id;
        if (c.text) {
            EXPECT_STREQ(name.render(), c.text);
        }
    }
    QtIdName name;
    name.set("trak");
    EXPECT_EQ(name.getId(), qtId("trak"));
    name.set("traks");
    EXPECT_EQ(name.getId(), 0u);
    name.set(qtId("mdia"));
    EXPECT_STREQ(name.render(), "mdia") << "setting again clears the cached rendering";
}
