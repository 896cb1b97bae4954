// Test support for composition times: a reference decode of a composition offset table that walks
// every run from entry 0 with no anchor or cache, by the library's rules, and movies with a
// long-GOP table built from bytes.
#pragma once

#include <set>
#include <vector>

#include "tests/tables/TableTestSupport.h"
#include "quicktime/tables/QtAtomCompShift.h"
#include "quicktime/tables/QtAtomCompTime.h"
#include "quicktime/tables/QtAtomSampleDepend.h"
#include "quicktime/tables/QtAtomSampleSync.h"

namespace CompTest {

using Sample = QtAtomCompTime::Sample;

inline QtAtomCompTime const* compTable(BaseQtAtom const* stbl) {
    return stbl ? dynamic_cast<QtAtomCompTime const*>(stbl->findAtom("ctts", 0)) : nullptr;
}

// A sample as its printout shows it, and ",r" when marked reserved.
inline std::string text(Sample const& sample) {
    return std::string(sample.toString().get()) + (sample.reserved ? ",r" : "");
}

// What getSample must answer for samples 0 .. n - 1.
inline std::vector<Sample> referenceDecode(QtAtomCompTime const& ctts, unsigned long n) {
    auto const* cslg = ctts.getCslg();
    unsigned int shift = cslg ? static_cast<unsigned int>(cslg->getShift()) : 0;
    int ticks = static_cast<int>(ctts.getTicksPerSample());
    std::set<unsigned long> keys;
    for (QtAtomSampleSync const* sync : {ctts.getStss(), ctts.getStps()})
        for (unsigned int i = 0; sync && i < sync->size(); ++i) keys.insert(sync->getKey(i, nullptr));
    bool hasKeys = ctts.getStss() || ctts.getStps();
    // Raw offset and whether it is zero once shifted, sample by sample.
    std::vector<int> raw;
    std::vector<bool> zero;
    for (unsigned int i = 0; i < ctts.getArray().getVirtualSize() && raw.size() < n; ++i) {
        QtAtomCompTime::DiskEntry entry = ctts.getEntry(i, nullptr);
        if (entry.count == 0) break;
        for (unsigned int k = 0; k < entry.count && raw.size() < n; ++k) {
            raw.push_back(entry.offset);
            zero.push_back(static_cast<unsigned int>(entry.offset) + shift == 0);
        }
    }
    QtAtomSampleDepend const* sdtp = ctts.getSdtp();
    std::vector<Sample> out;
    for (unsigned long s = 0; s < n; ++s) {
        uint32_t type = SampleCodingI, depend = 1;
        int offset = 0;
        if (hasKeys && s < raw.size()) {
            unsigned long back = 0;
            while (back < s && zero[s - 1 - back]) ++back;
            depend = static_cast<uint32_t>(std::min(back + 1, s));
            type = zero[s] ? SampleCodingB : keys.count(s) ? SampleCodingI : SampleCodingP;
            offset = raw[s];
        }
        Sample expected(static_cast<uint32_t>(s), depend, type);
        if (sdtp && type != SampleCodingI) {
            unsigned char b = sdtp->getSampleDepend(s, nullptr);
            if ((b & 0x30) != 0x20) {
                if ((b & 0x0C) == 0x08) expected.type = SampleCodingB;
            } else if ((b & 0x40) == 0) {
                expected.type = SampleCodingB;
                expected.reserved = 1;
            } else {
                expected.type = SampleCodingP;
            }
            long j = static_cast<long>(s) - 1;
            while (j > 0 && (sdtp->getSampleDepend(static_cast<unsigned long>(j), nullptr) & 0x0C) == 0x08) --j;
            expected.anchor = static_cast<uint32_t>(j);
        }
        expected.offset = offset / ticks - (cslg ? 0 : 1);
        out.push_back(expected);
    }
    return out;
}

// Runs of a stream in decode order, one letter per sample ("IBBP..."), as derive mode writes them
// with offsets in frames of `ticks`: each reference is shown after the B frames that follow it.
inline std::vector<std::pair<uint32_t, int32_t>> derivedRuns(std::string const& types, int32_t ticks) {
    std::vector<std::pair<uint32_t, int32_t>> runs;
    auto add = [&](int32_t offset) {
        if (!runs.empty() && runs.back().second == offset)
            ++runs.back().first;
        else
            runs.push_back({1, offset});
    };
    for (size_t i = 0; i < types.size(); ++i) {
        if (types[i] == 'B') {
            add(0);
            continue;
        }
        int32_t following = 0;
        while (i + 1 + following < types.size() && types[i + 1 + following] == 'B') ++following;
        add((1 + following) * ticks);
    }
    return runs;
}

// A movie with one video track of the given decode-order types: 'stts' of `ticks`, 'stss' at the I
// frames, the derived 'ctts' and 'stsz', then the `extra` tables.
inline Bytes gopMovie(std::string const& types, int32_t ticks, std::vector<Bytes> extra = {}) {
    std::vector<uint32_t> keys;
    for (size_t i = 0; i < types.size(); ++i)
        if (types[i] == 'I') keys.push_back(static_cast<uint32_t>(i + 1));
    Bytes stts = fullAtom("stts", {1, static_cast<uint32_t>(types.size()), static_cast<uint32_t>(ticks)});
    extra.insert(extra.begin(), {stts, stszAtom(static_cast<uint32_t>(types.size())), syncAtom("stss", keys),
                                 cttsAtom(derivedRuns(types, ticks))});
    return movieWithTable(extra);
}

// `gops` repetitions of a GOP pattern.
inline std::string repeat(std::string const& gop, unsigned int gops) {
    std::string out;
    for (unsigned int i = 0; i < gops; ++i) out += gop;
    return out;
}

}  // namespace CompTest
