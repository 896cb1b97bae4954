#include "quicktime/atoms/QtAtomHelpers.h"

#include <algorithm>

#include "framework/FormatStr.h"
#include "framework/Messages.h"
#include "quicktime/atoms/QtTimeCode.h"

namespace QtAtomHelpers {

unsigned int bytesLeft(BaseQtAtom const& atom, QtAtomBuffer const& buffer) {
    unsigned long consumed = buffer.fileOffset() - atom.getFileOffset();
    unsigned long inAtom = atom.getSize() > consumed ? atom.getSize() - consumed : 0;
    return static_cast<unsigned int>(std::min<unsigned long>(inAtom, buffer.nOccupied()));
}

void padToSize(BaseQtAtom const& atom, QtAtomBuffer& buffer, unsigned int before) {
    unsigned long written = buffer.nOccupied() - before;
    if (written < atom.getSize()) buffer.append(static_cast<unsigned int>(atom.getSize() - written), true);
}

unsigned long roomAfter(BaseQtAtom const& atom, unsigned long fixedSize) {
    return atom.getSize() > fixedSize ? atom.getSize() - fixedSize : 0;
}

bool fitsItsSize(BaseQtAtom const& atom, char const* table) {
    unsigned long needed = atom.getFixedSize() + atom.getVariableSize();
    if (needed <= atom.getSize()) return true;
    errorMsg("%s: byte overflow error %s::encode(): %ld bytes needed, atom size is %ld\n",
             atom.getAtomPath().get(), table, static_cast<long>(needed), static_cast<long>(atom.getSize()));
    return false;
}

unsigned long entriesThatFit(BaseQtAtom const& atom, unsigned long count, unsigned int entrySize) {
    return std::min(count, roomAfter(atom, atom.getFixedSize()) / entrySize);
}

int continuationIndent(BaseQtAtom const& atom) { return static_cast<int>(2 * atom.numGeneration() + 2); }

AutoPtr<char> fullAtomText(BaseQtAtom const& atom, QtVersionAndFlags const& versionAndFlags) {
    return FormatStr("%s,%s", atom.toString().get(), BaseQtAtom::toString(versionAndFlags).get());
}

AutoPtr<char> timeText(unsigned int value, unsigned int timeScale) {
    return QtTimeCode(value, timeScale).toString();
}

}  // namespace QtAtomHelpers
