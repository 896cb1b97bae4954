// QtAtomSampleDesc: the sample description table ('stsd') of a track's sample table. It owns one
// QtSampleDesc per distinct coding of the track's samples; the sample-to-chunk table refers to
// them by 1-based index. Which class reads an entry follows from the track's media type (the
// subtype of the nearest media handler above), not from the entry's format code.
//
// Mutation goes through write(): the add...Desc operations and the entries' setters mark the atom
// changed, and an entry whose size moves has the atom's size recomputed (QtSampleDesc::updateSize).
#pragma once

#include <vector>

#include "framework/AutoPtr.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtFields.h"
#include "quicktime/descriptions/QtSampleDesc.h"

class QtAudioSampleDesc;
class QtMpeg2SampleDesc;
class QtTimecodeSampleDesc;
class QtVideoSampleDesc;

class QtAtomSampleDesc : public BaseQtAtom {
public:
    explicit QtAtomSampleDesc(BaseQtAtom const* parent);

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    bool hasEncodedChildren() const override;
    unsigned int getFixedSize() const override { return BaseQtAtom::getFixedSize() + 8; }
    // The sum of the entries' size fields.
    unsigned long getVariableSize() const override;
    void show() const override;

    // The component subtype of the nearest handler above whose component type is 'mhlr'
    // ('vide', 'soun', 'tmcd', 'text', 'm2v ', ...), or 0.
    QtAtomIdType findMediaType() const;
    // A new, undecoded description of the class for this track's media type; the caller owns it.
    QtSampleDesc* createDesc(unsigned int index) const;

    unsigned int getCount() const { return static_cast<unsigned int>(m_entries.size()); }
    // The n-th description (1-based); null for 0, past the count, or of another class.
    QtSampleDesc const* getDesc(unsigned int n) const;
    QtVideoSampleDesc const* getVideoDesc(unsigned int n) const;
    QtAudioSampleDesc const* getAudioDesc(unsigned int n) const;
    QtMpeg2SampleDesc const* getMpeg2Desc(unsigned int n) const;
    QtTimecodeSampleDesc const* getTimecodeDesc(unsigned int n) const;
    // The writable forms, reached through write().
    QtVideoSampleDesc* getVideoDesc(unsigned int n);
    QtAudioSampleDesc* getAudioDesc(unsigned int n);
    QtMpeg2SampleDesc* getMpeg2Desc(unsigned int n);
    QtTimecodeSampleDesc* getTimecodeDesc(unsigned int n);
    // The data reference index of the n-th description; 0 for 0 or past the count.
    unsigned int getDrefIndex(unsigned int n) const;

    // Append a new description whose data reference index names the alias of `path` in the
    // track's 'dref' (findAliasIndex); return it.
    QtVideoSampleDesc* addVideoDesc(char const* path) const;
    QtAudioSampleDesc* addAudioDesc(char const* path) const;
    // Appends a new MPEG-2 description whose data reference index is, deliberately, its own entry
    // number rather than a 'dref' lookup.
    QtMpeg2SampleDesc* addMpeg2Desc() const;
    // Appends a new timecode description (one frame a second until setRate), numbered the same way.
    QtTimecodeSampleDesc* addTimecodeDesc() const;

    // The 1-based index of the 'alis' reference in this track's 'dref' whose path equals the
    // normalised `path`; one past the last alias when none does; 1 without a 'dref'.
    unsigned int findAliasIndex(char const* path) const;

    QtAtomSampleDesc* write() const { return static_cast<QtAtomSampleDesc*>(BaseQtAtom::write()); }

private:
    // Reads entries after the header and count, within `remaining` bytes of the atom.
    void decodeEntries(QtAtomBuffer& buffer, unsigned int count, unsigned long remaining);
    // Takes ownership of `desc`, appends it and recomputes the atom's size.
    void append(QtSampleDesc* desc);

    QtVersionAndFlags m_versionAndFlags;
    std::vector<AutoPtr<QtSampleDesc>> m_entries;
};
