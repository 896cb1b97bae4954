#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <set>
#include <thread>

#include "framework/SorvanPosix.h"
#include "tests/TestSupport.h"
#include "tests/framework/FaultyFileIO.h"

namespace {

std::vector<unsigned char> bytes(char const* text) {
    return std::vector<unsigned char>(text, text + strlen(text));
}

long put(BasicFileIO& file, unsigned long offset, char const* text) {
    return file.writeAt(offset, text, strlen(text));
}

long put(BasicFileIO& file, unsigned long offset, std::vector<unsigned char> const& data) {
    return file.writeAt(offset, data.data(), data.size());
}

using Policy = FaultyFileIO::CrashPolicy;
using Piece = FaultyFileIO::Piece;

Policy keepWrites(std::set<unsigned int> writes) {
    return {[writes](Piece const& piece) { return writes.count(piece.write) > 0; }};
}

std::vector<unsigned char> crashed(FaultyFileIO& file, Policy const& policy) {
    TempFile copy("crashed.mov");
    EXPECT_TRUE(file.crashCopy(copy.c_str(), policy));
    return readFileBytes(copy.path());
}

}  // namespace

TEST(FaultyFileIO, CrashKeepsAnySubsetOfUnsyncedWritesAndTheNewestKeptOneWins) {
    TempFile scratch;
    scratch.write(bytes("0123456789"));
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::ReadWrite);
    put(*file, 0, "AAAA");  // write 1
    put(*file, 2, "BB");    // write 2, over write 1
    put(*file, 12, "XYZ");  // write 3, past the end
    put(*file, 13, "Q");    // write 4, inside write 3
    std::string const gap("\0\0", 2);
    struct Case {
        std::set<unsigned int> kept;
        std::string left;
    } const cases[] = {
        {{}, "0123456789"},
        {{1}, "AAAA456789"},
        {{2}, "01BB456789"},
        {{1, 2}, "AABB456789"},
        {{3}, "0123456789" + gap + "XYZ"},
        {{4}, "0123456789" + gap + std::string(1, '\0') + "Q"},  // write 3's bytes are not there
        {{1, 3, 4}, "AAAA456789" + gap + "XQZ"},
    };
    for (Case const& c : cases) {
        std::vector<unsigned char> left = crashed(*file, keepWrites(c.kept));
        EXPECT_EQ(std::string(left.begin(), left.end()), c.left) << "kept " << c.kept.size();
    }
    EXPECT_EQ(crashed(*file, Policy::keepAll()), readFileBytes(scratch.path()));
    file->simulateCrash(keepWrites({2, 3}));
    std::vector<unsigned char> left = readFileBytes(scratch.path());
    EXPECT_EQ(std::string(left.begin(), left.end()), "01BB456789" + gap + "XYZ");
}

TEST(FaultyFileIO, TornWritesKeepOrLoseEach4KiBPieceOnItsOwn) {
    TempFile scratch;
    std::vector<unsigned char> old(16384, 'o');
    scratch.write(old);
    auto file = FaultyFileIO::open(scratch.c_str(), BasicFileIO::ReadWrite);
    put(*file, 4000, std::vector<unsigned char>(8288, 'n'));  // pieces of 96, 4096 and 4096 bytes
    std::vector<std::pair<unsigned long, unsigned long>> const expectedPieces = {
        {4000, 96}, {4096, 4096}, {8192, 4096}};
    std::vector<std::pair<unsigned long, unsigned long>> pieces;
    std::vector<unsigned char> middle = crashed(*file, {[&](Piece const& piece) {
        pieces.emplace_back(piece.offset, piece.size);
        return piece.index == 1;
    }});
    EXPECT_EQ(pieces, expectedPieces);
    std::vector<unsigned char> expected = old;
    std::fill(expected.begin() + 4096, expected.begin() + 8192, 'n');
    EXPECT_EQ(middle, expected);

    // A seeded policy gives the same file for the same seed, every piece whole, and tears some writes.
    bool torn = false;
    for (uint64_t seed = 1; seed <= 32; ++seed) {
        std::vector<unsigned char> left = crashed(*file, Policy::random(seed));
        ASSERT_EQ(left, crashed(*file, Policy::random(seed)));
        std::set<unsigned char> kinds;
        for (auto const& [begin, size] : expectedPieces) {
            kinds.insert(left[begin]);
            EXPECT_EQ(left[begin], left[begin + size - 1]);
        }
        torn = torn || kinds.size() == 2;
    }
    EXPECT_TRUE(torn);
}

// A sweep takes copies at every write instead of re-running with the power cut there: both must
// leave the same file, and the cut must tell when it struck.
TEST(FaultyFileIO, CopiesTakenAtAWriteEqualACrashAfterThePowerWasCutThere) {
    auto script = [](FaultyFileIO& file) {
        put(file, 0, "head");
        put(file, 8, std::vector<unsigned char>(9000, 'a'));
        file.sync();
        put(file, 2, "XY");
        put(file, 4096, std::vector<unsigned char>(5000, 'b'));
        file.sync();
        put(file, 9000, "tail");
        file.sync();
    };
    std::vector<Policy> const policies = {Policy::keepNone(), Policy::keepAll(), Policy::random(5)};
    std::vector<std::vector<std::vector<unsigned char>>> copies;  // per write, per policy
    TempFile observed;
    {
        auto file = FaultyFileIO::open(observed.c_str(), BasicFileIO::Create);
        file->setWriteObserver([&](FaultyFileIO::IoCount const& count) {
            EXPECT_EQ(count.writes, copies.size() + 1);
            copies.emplace_back();
            for (Policy const& policy : policies) copies.back().push_back(crashed(*file, policy));
        });
        script(*file);
        EXPECT_FALSE(file->powerCutAt());
    }
    ASSERT_EQ(copies.size(), 5u);
    unsigned int const syncsBefore[] = {0, 0, 1, 1, 2};
    for (unsigned int n = 1; n <= 5; ++n) {
        for (size_t p = 0; p < policies.size(); ++p) {
            TempFile cut;
            auto file = FaultyFileIO::open(cut.c_str(), BasicFileIO::Create);
            file->cutPowerAfterWrites(n);
            script(*file);
            ASSERT_TRUE(file->powerCutAt());
            EXPECT_EQ(file->powerCutAt()->writes, n);
            EXPECT_EQ(file->powerCutAt()->syncs, syncsBefore[n - 1]);
            file->simulateCrash(policies[p]);
            EXPECT_EQ(readFileBytes(cut.path()), copies[n - 1][p]) << "write " << n << ", policy " << p;
        }
    }
}
