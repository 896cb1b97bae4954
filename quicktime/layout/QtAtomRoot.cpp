#include "quicktime/layout/QtAtomRoot.h"

QtAtomRoot::QtAtomRoot(AutoRefPtr<BasicFileIO> file, unsigned long size)
    : BaseQtAtom(kRootId, nullptr, size), m_file(std::move(file)) {
    if (size != 0) setDecoded();
}

QtAtomRoot::~QtAtomRoot() = default;

// The root has no bytes of its own in the file.
bool QtAtomRoot::decode(QtAtomBuffer&) { return true; }

bool QtAtomRoot::encode(QtAtomBuffer&) const { return true; }

int QtAtomRoot::getSizeAdvice() const { return 2; }

bool QtAtomRoot::adjustCache(CacheBytesType, int32_t) const { return true; }
