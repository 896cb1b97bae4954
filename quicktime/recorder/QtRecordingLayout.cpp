#include "quicktime/recorder/QtRecordingLayout.h"

#include <algorithm>

#include "framework/BasicFileIO.h"
#include "framework/Messages.h"
#include "framework/QtAtomBuffer.h"
#include "quicktime/atoms/QtAtomMvhd.h"
#include "quicktime/atoms/QtAtomPreserved.h"
#include "quicktime/atoms/QtAtomWriter.h"
#include "quicktime/layout/QtAtomMdat.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomRoot.h"
#include "quicktime/layout/QtAtomSkip.h"
#include "quicktime/recorder/QtAtomCloner.h"
#include "quicktime/tables/QtAtomSampleChunkOff.h"

namespace {

constexpr QtAtomIdType kFree = qtId("free");
constexpr QtAtomIdType kStbl = qtId("stbl");
constexpr unsigned long kMoovAlignment = 16;
constexpr unsigned long kTableAlignment = 8;

// A 'free' atom of `size` bytes (zeros), not linked.
QtAtomPreserved* makePad(unsigned long size) {
    std::vector<unsigned char> bytes(size, 0);
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<unsigned char>(size >> (24 - 8 * i));
    std::copy_n("free", 4, bytes.begin() + 4);
    auto* pad = new QtAtomPreserved(nullptr, kFree);
    QtAtomBuffer buffer(bytes.data(), static_cast<unsigned int>(size), QtAtomBuffer::Full);
    pad->decode(buffer);
    return pad;
}

// The atom's own bytes as they go to the file: the header and fixed part of a container, the
// head of a table whose entries live on disk, the whole atom otherwise.
template <class Visit>
void preOrder(BaseQtAtom const* atom, Visit const& visit) {
    visit(atom);
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) preOrder(child, visit);
}

void putBig(std::vector<unsigned char>& bytes, unsigned long value, int width) {
    for (int i = 0; i < width; ++i) bytes.push_back(static_cast<unsigned char>(value >> (8 * (width - 1 - i))));
}

}  // namespace

QtRecordingLayout::QtRecordingLayout(QtAtomRoot const& root, BasicFileIO& file) : m_root(root), m_file(file) {}

bool QtRecordingLayout::create(uint32_t timeScale) {
    QtAtomBytes ftyp;
    ftyp.open("ftyp").fourcc("qt  ").u32(0x20050300).fourcc("qt  ").zeros(4).close();
    QtAtomCloner::build(&m_root, ftyp.bytes().data(), ftyp.bytes().size());
    m_switch = new QtAtomSkip(QtAtomSkip::kSkipId, 16, 0ul);
    m_switch->setHeaderSize(16);
    {
        SorvanPosix::ScopeLock lock(m_root.getStructureMutex());
        m_root.appendChild(m_switch);
        m_moov = new QtAtomMoov(&m_root, QtAtomMoov::kMoovId);
    }
    m_mvhd = new QtAtomMvhd(m_moov, timeScale ? timeScale : QtAtomMvhd::kDefaultTimeScale);
    m_mvhd->setTime(0);
    m_moov->appendChild(makePad(8));
    if (!placeMovie()) return false;
    m_lastMdat = m_openMdat = new QtAtomMdat(&m_root, 0);
    m_chunks.addMdat(m_lastMdat);
    std::vector<unsigned char> ftypBytes = QtAtomWriter::encodeOwn(*m_root.getChild());
    if (!writeBytes(0, ftypBytes) || !writeSkipHeader(*m_switch) || !writeWholeMovie() ||
        !writeMdatHeader(*m_lastMdat, true) || !sync())
        return false;
    movieIsClean();
    return true;
}

// ---------------------------------------------------------------- placement in the tree

bool QtRecordingLayout::needsPlacement() const {
    return m_moov->recalcOffset(QtTreeSize(false, 0, m_moov->getFileOffset())).size != m_moov->getSize();
}

BaseQtAtom const* QtRecordingLayout::replacePad(BaseQtAtom const* pad, unsigned long size) {
    QtAtomPreserved* fresh = makePad(size);
    pad->insertSibling(fresh);
    pad->removeSelf(false);
    delete pad;
    return fresh;
}

// Gives the pad after each track's descriptions the size that starts the tables on an 8-byte
// boundary, walking the atoms with the offsets they will have.
void QtRecordingLayout::alignSampleTables(BaseQtAtom const* atom, unsigned long offset) {
    unsigned long at = offset + atom->getFixedSize();
    bool stbl = atom->getId() == kStbl;
    for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling()) {
        if (stbl && child->getId() == kFree) {
            unsigned long size = 8 + (kTableAlignment - (at + 8) % kTableAlignment) % kTableAlignment;
            if (child->getSize() != size) child = replacePad(child, size);
        } else if (!stbl && child->getChild()) {
            alignSampleTables(child, at);
        }
        at += child->recalcOffset(QtTreeSize(false, 0, at)).size;
    }
}

// Sizes the pads of the movie at its place (the moov's offset as linked), then places every atom.
bool QtRecordingLayout::placeMovie() {
    unsigned long offset = m_moov->getFileOffset();
    alignSampleTables(m_moov, offset);
    BaseQtAtom const* pad = m_moov->getLastChild();
    if (!pad || pad->getId() != kFree) return false;
    unsigned long size = m_moov->recalcOffset(QtTreeSize(false, 0, offset)).size;
    unsigned long rest = size - pad->getSize();
    unsigned long padSize = 8 + (kMoovAlignment - (offset + rest + 8) % kMoovAlignment) % kMoovAlignment;
    if (padSize != pad->getSize()) replacePad(pad, padSize);
    m_root.recalcOffset(QtTreeSize(true, 0, 0));
    return (m_moov->getFileOffset() + m_moov->getSize()) % kMoovAlignment == 0;
}

void QtRecordingLayout::addToMovie(BaseQtAtom const* atom) const {
    BaseQtAtom const* pad = nullptr;
    for (BaseQtAtom const* child = m_moov->getChild(); child && child != atom; child = child->getSibling())
        if (child->getId() == kFree) pad = child;
    if (!pad) return;
    atom->removeSelf(false);
    pad->insertSibling(atom);
}

bool QtRecordingLayout::relocate() {
    if (m_newSwitch && m_switched && !finishRelocation()) return false;
    QtAtomSkip const* before = m_newSwitch ? m_newSwitch : m_switch;
    BaseQtAtom const* next = m_moov->getSibling();
    unsigned long nextOffset = next ? next->getFileOffset() : 0;
    auto* fresh = new QtAtomSkip(QtAtomSkip::kSkipId, 16, 0ul);
    fresh->setHeaderSize(16);
    {
        SorvanPosix::ScopeLock lock(m_root.getStructureMutex());
        // The movie's current place joins the switch before it: the room is what the movie
        // occupies in the file now (up to the mdat after it), not its size in the tree, which new
        // atoms have already grown.
        before->setSize(16 + (nextOffset - m_moov->getFileOffset()));
        m_moov->removeSelf(false);
        if (next) {
            next->BaseQtAtom::setOffset(nextOffset);
            next->setClean();
        }
        unsigned long end = m_lastMdat->getFileOffset() + m_lastMdat->getSize();
        if (end % kMoovAlignment) m_lastMdat->grow(kMoovAlignment - end % kMoovAlignment);
        m_root.appendChild(fresh);
        m_root.appendChild(m_moov);
    }
    m_newSwitch = fresh;
    m_switched = false;
    m_moov->write();
    if (!placeMovie()) {
        errorMsg("%s: the movie cannot be placed at %lu\n", m_root.getMoviePath(), m_moov->getFileOffset());
        return false;
    }
    m_lastMdat = new QtAtomMdat(&m_root, 0);
    m_chunks.addMdat(m_lastMdat);
    return true;
}

// ---------------------------------------------------------------- writing

bool QtRecordingLayout::writeBytes(unsigned long offset, std::vector<unsigned char> const& bytes) {
    if (bytes.empty()) return true;
    if (m_file.writeAt(offset, bytes.data(), bytes.size()) == static_cast<long>(bytes.size())) return true;
    errorMsg("%s: writing %zu bytes at %lu failed\n", m_root.getMoviePath(), bytes.size(), offset);
    return false;
}

bool QtRecordingLayout::writeSize64(unsigned long at, unsigned long size) {
    std::vector<unsigned char> bytes;
    putBig(bytes, size, 8);
    return writeBytes(at, bytes);
}

bool QtRecordingLayout::writeSkipHeader(QtAtomSkip const& skip) {
    std::vector<unsigned char> bytes{0, 0, 0, 1, 's', 'k', 'i', 'p'};
    putBig(bytes, skip.getSize(), 8);
    return writeBytes(skip.getFileOffset(), bytes);
}

bool QtRecordingLayout::writeMdatHeader(QtAtomMdat const& mdat, bool open) {
    std::vector<unsigned char> bytes;
    if (open) {
        bytes = {0, 0, 0, 8, 'w', 'i', 'd', 'e', 0, 0, 0, 0, 'm', 'd', 'a', 't'};
    } else {
        bytes = {0, 0, 0, 1, 'm', 'd', 'a', 't'};
        putBig(bytes, mdat.getSize(), 8);
    }
    return writeBytes(mdat.getFileOffset(), bytes);
}

bool QtRecordingLayout::sync() {
    if (m_file.sync()) return true;
    errorMsg("%s: fdatasync failed\n", m_root.getMoviePath());
    return false;
}

// Every atom of the movie at its place, and the tables' entries through their arrays.
bool QtRecordingLayout::writeWholeMovie() {
    unsigned long failures = m_file.writeFailures();
    bool ok = true;
    preOrder(m_moov, [&](BaseQtAtom const* atom) {
        if (!ok) return;
        if (atom->hasUntouchedData() && !atom->hasVirtualTable() && atom->getSize() > atom->getFixedSize()) {
            errorMsg("%s: %s has no body in memory to write\n", m_root.getMoviePath(), atom->getAtomPath().get());
            ok = false;
            return;
        }
        ok = writeBytes(atom->getFileOffset(), QtAtomWriter::encodeOwn(*atom));
    });
    if (!ok) return false;
    m_moov->flushVirtualChildren();
    return m_file.writeFailures() == failures;
}

void QtRecordingLayout::movieIsClean() {
    preOrder(m_moov, [](BaseQtAtom const* atom) { atom->setClean(); });
    m_moov->flushDone(m_moov->getFileOffset());
}

bool QtRecordingLayout::flushInPlace() {
    struct Head {
        unsigned long offset;
        std::vector<unsigned char> bytes;
    };
    std::vector<Head> heads, gates;
    unsigned long failures = m_file.writeFailures();
    bool ok = true;
    // 1. entries past the counts, where no reader looks
    preOrder(m_moov, [&](BaseQtAtom const* atom) {
        if (!ok || !atom->isDirty()) return;
        std::vector<unsigned char> bytes = QtAtomWriter::encodeOwn(*atom);
        size_t fixed = std::min<size_t>(atom->getFixedSize(), bytes.size());
        if (bytes.size() > fixed)
            ok = writeBytes(atom->getFileOffset() + fixed,
                            std::vector<unsigned char>(bytes.begin() + static_cast<long>(fixed), bytes.end()));
        bytes.resize(fixed);
        bool gate = dynamic_cast<QtAtomSampleChunkOff const*>(atom) != nullptr;
        (gate ? gates : heads).push_back(Head{atom->getFileOffset(), std::move(bytes)});
    });
    if (!ok) return false;
    m_moov->flushVirtualChildren();
    if (m_file.writeFailures() != failures || !sync()) return false;
    // 2. counts and durations; 3. the chunk offset counts that open the new samples to readers
    for (auto const* phase : {&heads, &gates}) {
        for (Head const& head : *phase)
            if (!writeBytes(head.offset, head.bytes)) return false;
        if (!phase->empty() && !sync()) return false;
    }
    movieIsClean();
    return true;
}

bool QtRecordingLayout::flushRelocation() {
    if (!m_switched) {
        if (!writeWholeMovie()) return false;
        // The headers between the open mdat and the new copy: dead copies, closed mdats, the new
        // switch, the new open mdat. All still inside the open mdat, where no reader looks.
        bool hidden = false;
        for (BaseQtAtom const* child = m_root.getChild(); child; child = child->getSibling()) {
            if (child == m_openMdat) {
                hidden = true;
            } else if (hidden && child != m_moov) {
                auto const* skip = dynamic_cast<QtAtomSkip const*>(child);
                auto const* mdat = dynamic_cast<QtAtomMdat const*>(child);
                if ((skip && !writeSkipHeader(*skip)) || (mdat && !writeMdatHeader(*mdat, mdat == m_lastMdat)))
                    return false;
            }
        }
        if (!sync()) return false;
        unsigned long cover = m_newSwitch->getFileOffset() - m_switch->getFileOffset();
        if (!writeSize64(m_switch->getFileOffset() + 8, cover) || !sync()) return false;
        m_switched = true;
        movieIsClean();
    }
    // The new copy is durable; a failure to retire the old one is retried by the next flush.
    if (!finishRelocation()) errorMsg("%s: the old movie's place is not closed yet\n", m_root.getMoviePath());
    return true;
}

// The old copy is no longer read: its mdat gets its size, then the switch shrinks to skip only the
// old movie.
bool QtRecordingLayout::finishRelocation() {
    if (!writeMdatHeader(*m_openMdat, false) || !sync() ||
        !writeSize64(m_switch->getFileOffset() + 8, m_switch->getSize()) || !sync())
        return false;
    m_switch = m_newSwitch;
    m_openMdat = m_lastMdat;
    m_newSwitch = nullptr;
    m_switched = false;
    return true;
}

bool QtRecordingLayout::flush() {
    if (m_closed) return false;
    if (m_newSwitch && m_switched && !finishRelocation()) return false;
    if (needsPlacement() && !relocate()) return false;
    return m_newSwitch ? flushRelocation() : flushInPlace();
}

bool QtRecordingLayout::close(unsigned long essenceEnd) {
    if (m_closed) return true;
    if (!flush()) return false;
    if (m_newSwitch && !flushRelocation()) return false;
    if (m_newSwitch) return false;
    unsigned long end = m_lastMdat->getFileOffset() + m_lastMdat->getSize();
    // The open mdat runs to the end of the file on disk, so shrinking it changes nothing a reader
    // sees before its header is written below.
    unsigned long used = std::max(essenceEnd, m_lastMdat->getDataOffset());
    if (used < end) {
        m_lastMdat->setSize(used - m_lastMdat->getFileOffset());
        end = used;
    }
    if (m_file.length() != end && !m_file.truncate(end)) return false;
    if (!writeMdatHeader(*m_lastMdat, false) || !sync()) return false;
    m_closed = true;
    return true;
}
