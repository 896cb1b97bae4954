#include "quicktime/tables/QtTableBody.h"

#include <algorithm>
#include <cstring>

#include "framework/BasicFileIO.h"
#include "framework/Messages.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtDebug.h"

namespace {

// The bytes of the atom that are really there: its size, or less when the file ends inside it.
unsigned long heldSize(BaseQtAtom const& atom, QtAtomBuffer const& buffer) {
    unsigned long offset = atom.getFileOffset();
    unsigned long held = 0;
    if (AutoRefPtr<BasicFileIO> file = atom.getRootFp()) {
        unsigned long length = file->length();
        held = offset < length ? length - offset : 0;
    }
    // An atom decoded from bytes that are not (or not yet) in a file is held by the buffer.
    if (buffer.fileOffset() >= offset) held = std::max(held, buffer.fileOffset() - offset + buffer.nOccupied());
    return std::min(atom.getSize(), held);
}

}  // namespace

namespace QtTableBody {

bool read(BaseQtAtom const& atom, QtAtomBuffer& buffer, unsigned long offsetInAtom, unsigned int n,
          unsigned char* out) {
    unsigned long consumed = buffer.fileOffset() - atom.getFileOffset();
    if (offsetInAtom >= consumed && offsetInAtom - consumed + n <= buffer.nOccupied()) {
        memcpy(out, buffer.ptrData() + (offsetInAtom - consumed), n);
        return true;
    }
    AutoRefPtr<BasicFileIO> file = atom.getRootFp();
    if (file && file->readAt(atom.getFileOffset() + offsetInAtom, out, n) == static_cast<long>(n))
        return true;
    memset(out, 0, n);
    return false;
}

unsigned int entryRoom(BaseQtAtom const& atom, QtAtomBuffer const& buffer, unsigned long head, unsigned int entryBytes) {
    unsigned long held = heldSize(atom, buffer);
    unsigned long room = held > head ? (held - head) / entryBytes : 0;
    return static_cast<unsigned int>(std::min(room, 0xFFFFFFFFul));
}

bool mapEntries(BaseQtAtom const& atom, VirtualArrayBase& array, unsigned int room, unsigned long head) {
    if (room <= VirtualArrayBase::kResidentLimit || !atom.getRootFp() || !atom.setBackingStore(array)) return false;
    array.setMap(atom.getFileOffset() + head);
    return true;
}

void removeRest(BaseQtAtom const& atom, QtAtomBuffer& buffer) {
    unsigned long consumed = buffer.fileOffset() - atom.getFileOffset();
    if (consumed < atom.getSize())
        buffer.removeInput(std::min<unsigned long>(atom.getSize() - consumed, buffer.nOccupied()));
}

void reportTrailingZeros(BaseQtAtom const& atom, unsigned int count, std::function<bool(unsigned int)> const& isZero) {
    constexpr unsigned int kScan = 256;
    if (!quicktimeDbg.on(QtDbgAtomErrors) || count < 2 || !isZero(count - 1)) return;
    unsigned int scanned = std::min(count, kScan);
    unsigned int zeros = 0;
    for (unsigned int i = 1; i <= scanned; ++i) zeros += isZero(count - i);
    debugMsg("%s %s[%d]: last %d of %d zero\n", atom.getMoviePath(), atom.toString().get(), count, zeros, scanned);
}

}  // namespace QtTableBody
