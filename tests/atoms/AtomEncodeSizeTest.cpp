// Encoders stay within the size they report: atoms built and grown in memory without their size being
// recomputed are encoded into caller storage of exactly the room a writer gives them (the atoms read
// from the real movies are checked by the corpus round trip).
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "quicktime/quicktime.h"
#include "tests/TestSupport.h"

namespace {

// The room a writer gives an atom's encoding.
unsigned int writerRoom(BaseQtAtom const& atom) {
    unsigned int fixed = atom.getFixedSize();
    return std::max(atom.hasUntouchedData() ? fixed : atom.getEncodeSize(), fixed);
}

// Encodes into caller storage of exactly the writer's room: the buffer refuses anything beyond it.
::testing::AssertionResult encodesWithinItsRoom(BaseQtAtom const& atom) {
    unsigned int room = writerRoom(atom);
    Bytes storage(room);
    QtAtomBuffer buffer(storage.data(), room, QtAtomBuffer::Empty);
    atom.encode(buffer);
    if (!buffer.overflowed() && buffer.nOccupied() <= room) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << atom.getAtomPath().get() << " did not fit a room of " << room;
}

}  // namespace

TEST(AtomEncodeSize, AtomsGrownWithoutANewSizeStillEncodeWithinTheirRoom) {
    struct Case {
        char const* name;
        std::function<BaseQtAtom*(BaseQtAtom const* parent)> grow;
    };
    Case const cases[] = {
        {"elst", [](BaseQtAtom const* p) { return new QtAtomEditList(p, 1); }},
        {"stts",
         [](BaseQtAtom const* p) {
             auto* a = new QtAtomSampleTime(p);
             a->setFixedRate(0x1FFFFFFFFul, 1);
             return a;
         }},
        {"stsc",
         [](BaseQtAtom const* p) {
             auto* a = new QtAtomSampleChunk(p);
             for (unsigned int samples = 1; samples <= 5; ++samples) {
                 QtSampleLocation location(1, samples, true);
                 a->addCapacity();
                 a->addSamples(location);
             }
             return a;
         }},
        {"hdlr",
         [](BaseQtAtom const* p) {
             auto* a = new QtAtomHandler(p, qtId("mhlr"), qtId("vide"));
             a->setName("a handler name longer than the room");
             return a;
         }},
        {"tcmi",
         [](BaseQtAtom const* p) {
             auto* a = new QtAtomTimecodeInf(p);
             a->setFontName("Helvetica Neue");
             return a;
         }},
        {"stsz",
         [](BaseQtAtom const* p) {
             auto* a = new QtAtomSampleSize(p);
             a->setCapacity(40);
             return a;
         }},
        {"alis",
         [](BaseQtAtom const* p) {
             auto* a = new QtAtomDataAlias(p);
             a->setPath("/a/b/movie.mov", "/a/c/clip.mov");
             return a;
         }},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        QtAtomHeader parent(qtId("stbl"), nullptr);
        BaseQtAtom const* atom = c.grow(&parent);
        EXPECT_TRUE(encodesWithinItsRoom(*atom));
    }
}
