#include "quicktime/atoms/QtDebug.h"

namespace {

char const* const kQuicktimeDbgNames[32] = {
    "all sizes",      "dirty atoms",       "ctts table",        "abs table",
    "sparse table",   "ignore_cttsSparseSeed_v2", "resize0",   "resize1",
    "flush0",         "flush1",            "move reason",       "relocate",
    "reservations",   "allow missing samples", "edits",         "show atoms",
    "show atoms immediately", "chunk allocator", "missing samples", "atom errors",
    "no dates",       "no file offsets",   "shadow writes",     "strictlgop",
    "fix wrong duration", "pharos fix",    "force imx",         "suppress UMID",
    "ignore imx klv", "bitrate",           "fixed migration",   "code page suppress",
};

char const* const kQuicktimeLegacyDbgNames[5] = {
    "old stsc lookup", "old ctts lookup", "use stco", "trace ctts", "ignore display offsets",
};

char const* const kMediaObjDbgNames[1] = {"media cache"};

}  // namespace

DebuggerOn quicktimeDbg("quicktimeDbg", 32, kQuicktimeDbgNames);
DebuggerOn quicktimeLegacyDbg("quicktimeLegacyDbg", 5, kQuicktimeLegacyDbgNames);
DebuggerOn mediaObjDbg("mediaObjDbg", 1, kMediaObjDbgNames);
