// Qtx::FieldInfo ('fiel'): field count and the names of the detail values.
#include <gtest/gtest.h>

#include "quicktime/descriptions/QtxFieldInfo.h"
#include "tests/descriptions/QtxTestBytes.h"

namespace {

TEST(QtxFieldInfo, NamesTheDetailAndFallsBackByFieldCount) {
    struct Case {
        unsigned char fields, detail;
        char const* text;
    } cases[] = {
        {2, 1, "fiel={ fields=2, detail=topFirst}"},       {2, 6, "fiel={ fields=2, detail=bottomFirst}"},
        {2, 9, "fiel={ fields=2, detail=firstLineEarly}"}, {2, 14, "fiel={ fields=2, detail=firstLineLate}"},
        {1, 0, "fiel={ fields=1, detail=onlyOneField}"},   {1, 3, "fiel={ fields=1, detail=onlyOneField}"},
        {2, 0, "fiel={ fields=2, detail=unknown}"},        {0, 7, "fiel={ fields=0, detail=unknown}"},
    };
    for (Case const& c : cases) {
        Bytes bytes = atomBytes("fiel", Bytes{c.fields, c.detail});
        AutoPtr<Qtx::Atom> atom = createFrom(bytes);
        ASSERT_TRUE(atom);
        EXPECT_STREQ(atom->toString().get(), c.text);
        EXPECT_EQ(atom->getNumFields(), c.fields);
        EXPECT_EQ(atom->getDetail(), c.detail);
        EXPECT_EQ(encoded(*atom), bytes);
    }
}

}  // namespace
