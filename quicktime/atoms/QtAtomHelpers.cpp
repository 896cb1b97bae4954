#include "quicktime/atoms/QtAtomHelpers.h"

#include <algorithm>

#include "framework/FormatStr.h"
#include "quicktime/descriptions/QtTimeCode.h"

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

int continuationIndent(BaseQtAtom const& atom) {
    // The same depth as the atom's text form (top-level atoms of a rooted tree start in column 0).
    unsigned int level = atom.numGeneration();
    if (atom.findRoot() && level > 0) --level;
    return static_cast<int>(2 * level + 2);
}

AutoPtr<char> fullAtomText(BaseQtAtom const& atom, QtVersionAndFlags const& versionAndFlags) {
    return FormatStr("%s,%s", atom.toString().get(), BaseQtAtom::toString(versionAndFlags).get());
}

AutoPtr<char> timeText(unsigned int value, unsigned int timeScale) {
    return QtTimeCode(value, timeScale).toString();
}

}  // namespace QtAtomHelpers
