// The library's two debug-flag tables. Code tests a flag by its bit number (the enums below);
// operators set flags by table and flag name through DebuggerOn. Also the source-file names that
// the logging assertions report.
#pragma once

#include "framework/DebuggerOn.h"
#include "framework/Messages.h"

extern DebuggerOn quicktimeDbg;
extern DebuggerOn quicktimeLegacyDbg;
// The media-object module's table; this library reads only its "media cache" flag.
extern DebuggerOn mediaObjDbg;

enum QtDbgFlag : unsigned int {
    QtDbgAllSizes = 0,
    QtDbgDirtyAtoms = 1,
    QtDbgCttsTable = 2,
    QtDbgAbsTable = 3,
    QtDbgSparseTable = 4,
    QtDbgIgnoreCttsSparseSeedV2 = 5,
    QtDbgResize0 = 6,
    QtDbgResize1 = 7,
    QtDbgFlush0 = 8,
    QtDbgFlush1 = 9,
    QtDbgMoveReason = 10,
    QtDbgRelocate = 11,
    QtDbgReservations = 12,
    QtDbgAllowMissingSamples = 13,
    QtDbgEdits = 14,
    QtDbgShowAtoms = 15,
    QtDbgShowAtomsImmediately = 16,
    QtDbgChunkAllocator = 17,
    QtDbgMissingSamples = 18,
    QtDbgAtomErrors = 19,
    QtDbgNoDates = 20,
    QtDbgNoFileOffsets = 21,
    QtDbgShadowWrites = 22,
    QtDbgStrictLgop = 23,
    QtDbgFixWrongDuration = 24,
    QtDbgPharosFix = 25,
    QtDbgForceImx = 26,
    QtDbgSuppressUmid = 27,
    QtDbgIgnoreImxKlv = 28,
    QtDbgBitrate = 29,
    QtDbgFixedMigration = 30,
    QtDbgCodePageSuppress = 31,
};

enum QtLegacyDbgFlag : unsigned int {
    QtLegacyOldStscLookup = 0,
    QtLegacyOldCttsLookup = 1,
    QtLegacyUseStco = 2,
    QtLegacyTraceCtts = 3,
    QtLegacyIgnoreDisplayOffsets = 4,
};

// Source names reported by logIfNull/logIfFalse: the library's body and its private header.
#define QT_UTIL_FILE "quicktimeutil.cpp"
#define QT_PRIVATE_FILE "quicktimep.h"
