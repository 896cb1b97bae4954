// The printouts of the sample tables, one row per table: the short form lists the first entries and
// the last, and with "all sizes" every entry in groups of eight, each group with its first index.
#include <optional>

#include "quicktime/atoms/QtDebug.h"
#include "tests/tables/TableTestSupport.h"

namespace {

std::string shown(BaseQtAtom const& table, bool allSizes) {
    MessageCapture capture;
    std::optional<ScopedDebugFlag> all;
    if (allSizes) all.emplace("quicktimeDbg", "all sizes");
    table.show();
    return capture.all();
}

std::string const kGroup = "\n" + std::string(14, ' ');

}  // namespace

TEST(TablePrintout, ListsTheEntriesShortOrInFull) {
    std::vector<uint64_t> timePairs;
    for (uint64_t i = 1; i <= 9; ++i) timePairs.insert(timePairs.end(), {i, 10 * i});
    std::vector<std::pair<uint32_t, int32_t>> runs;
    for (int gop = 0; gop < 5; ++gop) runs.insert(runs.end(), {{1, 3}, {2, 0}});
    runs[3].first = 0;  // a damaged run
    std::vector<uint64_t> offsets = series(9, 10, 10);
    offsets.push_back(0);  // one slot of room
    struct Row {
        char const* type;
        std::vector<Bytes> tables;
        std::vector<std::string> shortForm, fullForm;
    } const rows[] = {
        {"stco", {tableAtom("stco", {9}, offsets, 4)}, {",cap=10,off[9]={10,20,30,...,90}\n"},
         {"0:10,20,30,40,50,60,70,80,\n", "8:90}\n"}},
        {"stsz", {tableAtom("stsz", {0, 10}, series(10, 1, 3), 4)}, {",cap=10,sizes[10]={1,4,7,...,28}\n"},
         {"0:1,4,7,10,13,16,19,22,\n", "8:25,28}\n"}},
        {"stsz", {tableAtom("stsz", {8, 3}, {}, 4)}, {",3 samples,sampleSize=8\n"}, {}},
        {"stss", {stszAtom(100), tableAtom("stss", {10}, series(10, 1, 10), 4)},
         {",cap=10,keyframes[10]={1,11,21,...,91}\n"},
         {"={" + kGroup + "0:1,11,21,31,41,51,61,71," + kGroup + "8:81,91}\n"}},
        {"stts", {tableAtom("stts", {9}, timePairs, 4)}, {",{cnt,len}[9]={1,10},{2,20},{3,30},...{9,90}\n"},
         {"[9]=\n", "{7,70},{8,80}\n", "{9,90}\n"}},
        {"stsc",
         {tableAtom("stts", {1}, {46, 100}, 4), tableAtom("stsc", {3}, {1, 10, 1, 4, 5, 1, 6, 3, 2}, 4)},
         {",cap=3{inSmpl,1stChunk,nSmpl,stsd#}[3]=\n", "{0,1,10,1},{30,4,5,1},{40,6,3,2},implied:{43,7,0,0}\n"},
         {}},
        {"stsc",  // five runs are listed whole
         {tableAtom("stts", {1}, {15, 100}, 4),
          tableAtom("stsc", {5}, {1, 1, 1, 2, 2, 1, 3, 3, 1, 4, 4, 1, 5, 5, 1}, 4)},
         {"{0,1,1,1},{1,2,2,1},{3,3,3,1}{6,4,4,1},{10,5,5,1},implied:{15,6,0,0}\n"},
         {}},
        {"sdtp", {atomBytes("sdtp", Bytes{0, 0, 0, 0, 1, 2, 3})}, {",cap=3,dep[0]={}\n"}, {}},
        {"ctts", {stszAtom(15), cttsAtom(runs)}, {",cap=10,cnt/off[10]={{1,3},{2,0},{1,3},...,{2,0}}\n"},
         {"={" + kGroup + "0:{1,3},{2,0},{1,3},{0,0},{1,3},{2,0},{1,3},{2,0}, <-- bad!!" + kGroup +
          "[8]=f10:{1,3},{2,0}}\n"}},
        {"cslg", {stszAtom(1), fullAtom("cslg", {512, static_cast<uint32_t>(-512), 1024, 0, 30720})},
         {",shift=512,lsDelta=-512,grDelta=1024,startTm=0,endTm=30720\n"}, {}},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.type);
        MovieOnDisk movie(movieWithTable(row.tables));
        auto const* table = movie.table<BaseQtAtom>(row.type);
        ASSERT_NE(table, nullptr);
        std::string text = shown(*table, false);
        for (std::string const& part : row.shortForm) EXPECT_NE(text.find(part), std::string::npos) << text;
        text = shown(*table, true);
        for (std::string const& part : row.fullForm) EXPECT_NE(text.find(part), std::string::npos) << text;
    }
}
