// QtAtomRoot: the top of an atom tree, the pseudo-atom "Root" whose children are a file's
// top-level atoms. It owns what belongs to the file rather than to any atom: the open file, shared
// through a reference-counted pointer (empty for a tree built in memory).
#pragma once

#include "framework/AutoRefPtr.h"
#include "framework/BasicFileIO.h"
#include "quicktime/atoms/BaseQtAtom.h"

class QtAtomRoot : public BaseQtAtom {
public:
    static constexpr QtAtomIdType kRootId = qtId("Root");

    // A root over a file; a non-zero size (the file's length when reading) marks it decoded.
    QtAtomRoot(AutoRefPtr<BasicFileIO> file, unsigned long size);
    ~QtAtomRoot() override;

    using BaseQtAtom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    bool hasUntouchedData() const override { return false; }
    bool needsAllData() const override { return false; }
    unsigned int getFixedSize() const override { return 0; }

    // A new reference to the file.
    AutoRefPtr<BasicFileIO> getFp() const { return m_file; }
    BasicFileIO* file() const { return m_file.get(); }

    int getSizeAdvice() const;
    bool adjustCache(CacheBytesType kind, int32_t delta) const;

private:
    AutoRefPtr<BasicFileIO> m_file;
};
