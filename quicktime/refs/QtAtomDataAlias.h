// QtAtomDataAlias: the alias data reference ('alis'). Unless it is a self reference, its body is
// an alias record naming the media file, followed by padding. The padding lets the reference be
// pointed at another file later without changing the atom's size, so that a movie being recorded
// can be rewritten in place: a new alias reserves 512 bytes.
#pragma once

#include <string>

#include "quicktime/atoms/QtAtomPreserved.h"
#include "quicktime/refs/QtAliasRecord.h"
#include "quicktime/refs/QtAtomRefBase.h"

class QtAtomDataAlias : public QtAtomRefBase {
  public:
    // Size a new alias reserves for its first target, and the padding given when a target does not
    // fit: 30 bytes for a new alias, 256 for one that is re-targeted.
    static constexpr unsigned int kReservedSize = 512;
    static constexpr unsigned int kNewOverflowPadding = 30;
    static constexpr unsigned int kRetargetOverflowPadding = 256;

    explicit QtAtomDataAlias(BaseQtAtom const* parent) : QtAtomRefBase(qtId("alis"), parent) {}

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    void show() const override;
    unsigned long getVariableSize() const override;

    // The referenced file's path, resolved against the movie's path when read; empty for a self
    // reference and for a new alias.
    char const* getPath() const { return m_path.c_str(); }

    // Points the reference at `targetPath` relative to `basePath` (the movie's path); both are
    // normalised first (PathParser: reroot, getPath(1)). A null target makes a self reference.
    // The size is left to the owner, who recomputes it (resetSize, recalcOffset) as for any atom
    // whose variable part changed; the padding is chosen so that the size stays where possible.
    // False when the alias record could not take the target (the atom is then unchanged apart from
    // its flags).
    bool setPath(char const* basePath, char const* targetPath) const;

    QtAliasRecord const& getAliasRecord() const { return m_record; }
    unsigned int getPadding() const { return m_padding; }

  private:
    bool hasRecord() const { return !isSelfReference() && m_kept.getSize() == 0; }
    // Decodes the record from the first `body` bytes of the buffer without consuming them; returns
    // the bytes it takes, or 0 when they do not hold a record that encodes back to the same bytes
    // (m_recordRead then still says whether a record could be read at all).
    unsigned int decodeRecord(QtAtomBuffer& buffer, unsigned int body);

    std::string m_path;
    unsigned int m_padding = 0;
    QtAliasRecord m_record;
    bool m_recordRead = false;  // m_record holds what the file or setPath gave it
    // A body that does not hold a record this code can write back unchanged (too short, a size
    // field that disagrees with the records, an odd record missing its pad byte at the very end) is
    // kept as read, until setPath replaces it.
    QtPreserved m_kept;
    // Padding that was not all zeros when read; written back while the padding keeps its length.
    QtPreserved m_paddingBytes;
};
