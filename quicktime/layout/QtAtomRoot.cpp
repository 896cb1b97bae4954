#include "quicktime/layout/QtAtomRoot.h"

#include <algorithm>
#include <cstdio>

#include "framework/FormatStr.h"
#include "quicktime/atoms/QtAtomWriter.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/layout/QtAtomMoov.h"
#include "quicktime/layout/QtAtomSkip.h"

namespace {

constexpr QtAtomIdType kMoov = qtId("moov");
constexpr QtAtomIdType kSkip = qtId("skip");
constexpr QtAtomIdType kWide = qtId("wide");

bool traceReservations() { return quicktimeDbg.on(QtDbgReservations); }

void markSubtree(BaseQtAtom const& top, bool dirty) {
    if (dirty)
        top.write();
    else
        top.setClean();
    for (BaseQtAtom const* child = top.getChild(); child; child = child->getSibling())
        markSubtree(*child, dirty);
}

}  // namespace

QtAtomRoot::QtAtomRoot(AutoRefPtr<BasicFileIO> file, unsigned long size)
    : BaseQtAtom(kRootId, nullptr, size),
      m_file(std::move(file)),
      m_reserveAnchor(this, &QtAtomRoot::reserveCb),
      m_flushAnchor(this, &QtAtomRoot::flushCb) {
    if (size != 0) setDecoded();
    if (m_file) m_file->setReservationCallback(&m_reserveAnchor);
}

QtAtomRoot::~QtAtomRoot() {
    bool waited = false;
    char const* path = m_file ? m_file->path() : "<no movie path>";
    for (;;) {
        unsigned int pending = pendingFlushes();
        if (pending == 0) break;
        if (!waited) warningMsg("%s: waiting for %d flushes to complete\n", path, static_cast<int>(pending));
        waited = true;
        waitMsec(1);
    }
    if (waited) warningMsg("%s: flushes done\n", path);
    m_reserveAnchor.detach();
    m_flushAnchor.detach();
    if (m_file && m_file->reservationCallback() == &m_reserveAnchor) m_file->setReservationCallback(nullptr);
}

// The root has no bytes of its own in the file.
bool QtAtomRoot::decode(QtAtomBuffer&) { return true; }

bool QtAtomRoot::encode(QtAtomBuffer&) const { return true; }

// ---------------------------------------------------------------- cache accounting

void QtAtomRoot::addVirtualBase(VirtualBase& array) const { array.setReservationCallback(&m_reserveAnchor); }

int QtAtomRoot::getSizeAdvice() const {
    if (!m_file) return 2;
    return static_cast<int>(m_file->sizeAdvice(BasicIOTypes::CacheTable));
}

QtAtomRoot const* QtAtomRoot::of(BaseQtAtom const* atom) {
    while (atom && atom->getParent()) atom = atom->getParent();
    return dynamic_cast<QtAtomRoot const*>(atom);
}

bool QtAtomRoot::adjustCache(QtRootContext::CacheBytesType kind, int32_t delta) const {
    if (!m_file) return true;
    bool table = kind == QtRootContext::TableBytes;
    uint32_t& total = table ? m_tableBytes : m_essenceBytes;
    if (static_cast<int64_t>(total) + delta < 0) {
        logIfFalse(false, "adjustCache", QT_UTIL_FILE, table ? 9254 : 9260);
        return false;
    }
    total = static_cast<uint32_t>(static_cast<int64_t>(total) + delta);
    if (!m_file->setCacheBytes(table ? BasicIOTypes::CacheTable : BasicIOTypes::CacheEssence, total))
        m_file->cacheFallback();
    unsigned long block = m_file->cacheBlockSize();
    if (!logIfFalse(block != 0, "adjustCache", QT_UTIL_FILE, 9270)) return false;
    unsigned long extra = m_file->cacheExtraBlocks();
    unsigned long essenceBlocks = (m_essenceBytes + 2 * block - 1) / block + extra;
    unsigned long tableBlocks = (m_tableBytes + 2 * block - 1) / block + extra;
    if (DebuggerOn::get("mediaObjDbg", "media cache"))
        debugMsg("%s: %db essence + %db table: %d==>%d cache blocks\n", getMoviePath(),
                 static_cast<int>(m_essenceBytes), static_cast<int>(m_tableBytes),
                 static_cast<int>(m_file->cacheBlocks()), static_cast<int>(essenceBlocks + tableBlocks));
    m_file->setCacheBlocks(static_cast<unsigned int>(essenceBlocks + tableBlocks),
                           static_cast<unsigned int>(tableBlocks));
    return true;
}

// ---------------------------------------------------------------- flushes

unsigned int QtAtomRoot::pendingFlushes() const {
    SorvanPosix::ScopeLock lock(m_mutex);
    return static_cast<unsigned int>(m_flushes.size());
}

bool QtAtomRoot::isFlushPending(QtAtomMoov const* moov) const {
    SorvanPosix::ScopeLock lock(m_mutex);
    for (auto const& elem : m_flushes)
        if (elem->moov == moov) return true;
    return false;
}

bool QtAtomRoot::flush(QtAtomMoov const* moov) const {
    if (!moov || !m_file) return false;
    recoverFailedFlushes();
    if (moov->hasFinalForm()) {
        moov->flushDone(moov->getFileOffset());
        return false;
    }
    unsigned long offset = moov->getFileOffset();
    {
        SorvanPosix::ScopeLock lock(m_mutex);
        for (auto const& elem : m_flushes) {
            if (elem->moov == moov && elem->offset == offset) {
                if (traceReservations())
                    debugMsg("%s: flush moov@%ld is redundant\n", getMoviePath(), static_cast<long>(offset));
                return false;
            }
        }
    }
    // The tables' entries go by their own arrays, written here and now at their places; the flush's
    // fdatasync makes them durable with the rest. The request carries only what the tree holds.
    unsigned long failures = m_file->writeFailures();
    moov->flushVirtualChildren();
    if (m_file->writeFailures() != failures) {
        errorMsg("%s: the tables of moov@%ld could not be written\n", getMoviePath(),
                 static_cast<long>(offset));
        return false;
    }
    BasicIOTypes::FlushReq request;
    if (!encodeChanged(*moov, request)) return false;
    request.extent = moov->getSize();
    if (traceReservations()) debugMsg("%s: flush moov@%ld\n", getMoviePath(), static_cast<long>(offset));
    FlushElem* elem = nullptr;
    {
        SorvanPosix::ScopeLock lock(m_mutex);
        m_flushes.insert(m_flushes.begin(), std::make_unique<FlushElem>(FlushElem{offset, moov}));
        elem = m_flushes.front().get();
    }
    request.anchor = &m_flushAnchor;
    request.element = elem;
    request.offset = offset;
    if (!m_file->flush(std::move(request))) {
        SorvanPosix::ScopeLock lock(m_mutex);
        m_flushes.erase(std::find_if(m_flushes.begin(), m_flushes.end(),
                                     [elem](auto const& pending) { return pending.get() == elem; }));
        return false;
    }
    // What changed is the file layer's to write now; should it fail, recoverFailedFlushes marks the
    // movie changed again.
    markSubtree(*moov, false);
    return true;
}

bool QtAtomRoot::flushCb(BasicIOTypes::FlushNotify const& notice) {
    bool found = false;
    {
        SorvanPosix::ScopeLock lock(m_mutex);
        auto it = std::find_if(m_flushes.begin(), m_flushes.end(),
                               [&](auto const& pending) { return pending.get() == notice.element; });
        if (it != m_flushes.end()) {
            found = true;
            FlushElem const& elem = **it;
            if (traceReservations())
                debugMsg("moov@%p @%ld ready\n", static_cast<void const*>(elem.moov),
                         static_cast<long>(elem.offset));
            if (notice.ok) {
                elem.moov->flushDone(elem.offset, *this);
            } else {
                errorMsg("%s: flush moov@%ld failed\n", m_file ? m_file->path() : "<no movie path>",
                         static_cast<long>(elem.offset));
                elem.moov->flushFailed();
            }
            m_flushes.erase(it);
        }
        for (; m_waiters > 0; --m_waiters) m_semaphore.post();
    }
    if (!found) errorMsg("QtAtomRoot::flushCb: can't find entry for %p\n", notice.element);
    return found;
}

bool QtAtomRoot::hasFinalForm(bool wait) const {
    if (wait) {
        bool pending;
        {
            SorvanPosix::ScopeLock lock(m_mutex);
            pending = !m_flushes.empty();
            if (pending) ++m_waiters;
        }
        if (pending) {
            if (traceReservations()) debugMsg("%s: hasFinalForm() blocked on flush\n", getMoviePath());
            m_semaphore.wait();
        }
    }
    for (BaseQtAtom const* child = getChild(); child; child = child->getSibling()) {
        if (child->isDirty()) return false;
        if (auto const* moov = dynamic_cast<QtAtomMoov const*>(child)) {
            if (!moov->hasFinalForm()) return false;
        } else if (child->getId() == kMoov) {
            return false;
        }
    }
    return true;
}

// The movie's header and the changed atoms' own bytes, each at its place (a table's head without its
// entries, a container's fixed part without its children), as one scattered request; neighbours are
// joined into one span.
bool QtAtomRoot::encodeChanged(BaseQtAtom const& top, BasicIOTypes::FlushReq& request) const {
    unsigned long base = top.getFileOffset();
    unsigned long end = base + top.getSize();
    if (top.getSize() > 0xFFFFFFFFul) {
        errorMsg("%s: movie of %ld bytes is too large to flush\n", getMoviePath(),
                 static_cast<long>(top.getSize()));
        return false;
    }
    std::vector<BaseQtAtom const*> stack{&top};
    while (!stack.empty()) {
        BaseQtAtom const* atom = stack.back();
        stack.pop_back();
        if (atom->getFileOffset() < base || atom->getFileOffset() + atom->getSize() > end) {
            errorMsg("%s: %s lies outside its movie\n", getMoviePath(), atom->getAtomPath().get());
            return false;
        }
        if (atom->isDirty() || atom == &top) {  // the movie's header always: it is what the flush is for
            std::vector<unsigned char> own = QtAtomWriter::encodeOwn(*atom);
            if (!own.empty()) {
                auto& spans = request.spans;
                if (!spans.empty() && spans.back().offset + spans.back().size == atom->getFileOffset())
                    spans.back().size += own.size();
                else
                    spans.push_back({atom->getFileOffset(), own.size()});
                request.bytes.insert(request.bytes.end(), own.begin(), own.end());
            }
        }
        size_t first = stack.size();
        for (BaseQtAtom const* child = atom->getChild(); child; child = child->getSibling())
            stack.push_back(child);
        std::reverse(stack.begin() + static_cast<long>(first), stack.end());
    }
    return true;
}

void QtAtomRoot::recoverFailedFlushes() const {
    for (BaseQtAtom const* child = getChild(); child; child = child->getSibling())
        if (auto const* moov = dynamic_cast<QtAtomMoov const*>(child); moov && moov->takeFlushFailure())
            markSubtree(*moov, true);
}

// ---------------------------------------------------------------- writing

bool QtAtomRoot::writeDirtyBelow(BaseQtAtom const& atom) const {
    if (auto const* moov = dynamic_cast<QtAtomMoov const*>(&atom); moov && isFlushPending(moov)) return true;
    if (atom.isDirty() && QtAtomWriter::writeAtom(atom, *m_file) < 0) return false;
    for (BaseQtAtom const* child = atom.getChild(); child; child = child->getSibling())
        if (!writeDirtyBelow(*child)) return false;
    return true;
}

bool QtAtomRoot::writeDirty() const {
    if (!m_file || !m_file->writable()) return false;
    recoverFailedFlushes();
    bool wroteMoovHeader = false;
    for (BaseQtAtom const* child = getChild(); child; child = child->getSibling()) {
        if (child->getDiskId() != kMoov) continue;
        wroteMoovHeader = wroteMoovHeader || child->isDirty();
        if (!writeDirtyBelow(*child)) return false;
    }
    bool losesMoovHeader = false;
    bool wroteOther = false;
    for (BaseQtAtom const* child = getChild(); child; child = child->getSibling()) {
        if (child->isDirty() && dynamic_cast<QtAtomSkip const*>(child)) losesMoovHeader = true;
        if (child->getDiskId() != kMoov && checkDirtyBelow(*child)) wroteOther = true;
    }
    if (wroteMoovHeader && losesMoovHeader && !m_file->sync()) {
        errorMsg("%s: cannot sync the new movie header\n", m_file->path());
        return false;
    }
    for (BaseQtAtom const* child = getChild(); child; child = child->getSibling())
        if (child->getDiskId() != kMoov && !writeDirtyBelow(*child)) return false;
    // What was written is durable before anyone is told the file is final (a demoted old 'moov'
    // included, so that two 'moov' headers do not outlive this call).
    if ((wroteMoovHeader || wroteOther) && !m_file->sync()) {
        errorMsg("%s: cannot sync the written atoms\n", m_file->path());
        return false;
    }
    return true;
}

bool QtAtomRoot::checkDirtyBelow(BaseQtAtom const& atom) const {
    if (atom.isDirty()) return true;
    for (BaseQtAtom const* child = atom.getChild(); child; child = child->getSibling())
        if (checkDirtyBelow(*child)) return true;
    return false;
}

// ---------------------------------------------------------------- structure

bool QtAtomRoot::reserveCb(VirtualBase::Reservation const& reservation) {
    {
        SorvanPosix::ScopeLock lock(m_structureMutex);
        for (BaseQtAtom const* child = getChild(); child; child = child->getSibling())
            if (child->update(reservation)) return true;
    }
    errorMsg("QtAtomRoot::reserveCb: reservation {%ld,%d,%s} unclaimed\n",
             static_cast<long>(reservation.offset), static_cast<int>(reservation.size),
             reservation.release ? "release" : "hold");
    return true;
}

QtAtomRoot::Structure QtAtomRoot::structure() const {
    Structure s;
    for (BaseQtAtom const* child = getChild(); child; child = child->getSibling()) {
        QtAtomIdType diskId = child->getDiskId();
        s.atoms.push_back({diskId, child->getFileOffset(), child->getSize()});
        if (diskId == kMoov) ++s.moovs;
        if (diskId == kSkip) ++s.skips;
        if (child->getId() == kMoov) s.movie = dynamic_cast<QtAtomMoov const*>(child);
    }
    return s;
}

namespace {

// One top-level atom as the structure report lists it: its type and offset, and for the movie and
// the skips their reservations.
std::string structureEntry(BaseQtAtom const* atom) {
    std::string entry =
        FormatStr(" %s@%ld", QtIdName(atom->getId()).render(), static_cast<long>(atom->getFileOffset())).get();
    if (auto const* moov = dynamic_cast<QtAtomMoov const*>(atom))
        entry += FormatStr("={moov@%p,%s}", static_cast<void const*>(moov), moov->getReservations().toString().get())
                     .get();
    else if (auto const* skip = dynamic_cast<QtAtomSkip const*>(atom))
        entry += FormatStr("={skip@%p,%s}", static_cast<void const*>(skip), skip->getReservations().toString().get())
                     .get();
    return entry;
}

}  // namespace

std::string QtAtomRoot::describeStructure(char const* label) const {
    Structure s = structure();
    std::string line =
        FormatStr("%s: %s: %d skip, %d moov:", getMoviePath(), label ? label : "", s.skips, s.moovs).get();
    for (BaseQtAtom const* child = getChild(); child; child = child->getSibling()) line += structureEntry(child);
    return line;
}

QtAtomMoov const* QtAtomRoot::checkStructure(char const* label) const {
    Structure s = structure();
    if (s.valid() || (m_structureReported && !quicktimeDbg.on(QtDbgAtomErrors))) return s.movie;
    // The report grows by one atom per message.
    std::string line =
        FormatStr("%s: %s: %d skip, %d moov:", getMoviePath(), label ? label : "", s.skips, s.moovs).get();
    for (BaseQtAtom const* child = getChild(); child; child = child->getSibling()) {
        line += structureEntry(child);
        debugMsg("%s", line.c_str());
    }
    m_structureReported = true;
    return s.movie;
}

bool QtAtomRoot::coalesceSkip() const {
    bool mergedAny = false;
    for (BaseQtAtom const* child = getChild(); child; child = child->getSibling()) {
        if (child->isReserved() || dynamic_cast<QtAtomMoov const*>(child)) continue;
        while (child->getDiskId() == kSkip) {
            BaseQtAtom const* next = child->getSibling();
            if (!next || dynamic_cast<QtAtomMoov const*>(next) || next->getDiskId() != kSkip ||
                next->isReserved())
                break;
            unsigned long total = child->getSize() + next->getSize();
            if (total > 0xFFFFFFFFul) break;
            auto* merged = new QtAtomSkip(kSkip, total, child->getFileOffset());
            {
                SorvanPosix::ScopeLock lock(m_structureMutex);
                next->appendSibling(merged);
                child->removeSelf(false);
                next->removeSelf(false);  // the merged skip ends at the first one's offset
                delete child;
                delete next;
            }
            child = merged;
            mergedAny = true;
        }
    }
    checkStructure("coalesce");
    return mergedAny;
}

bool QtAtomRoot::closeOpenEndedAtom() const {
    BaseQtAtom const* before = nullptr;
    BaseQtAtom const* open = getChild();
    while (open && !open->isOpenEnded()) {
        before = open;
        open = open->getSibling();
    }
    if (!open || !open->getSibling()) return true;
    open->clearOpenEnded();
    open->write();
    if (open->getSize() <= 0xFFFFFFFFul) return true;
    if (!before || before->getId() != kWide || before->getSize() != 8) return false;
    {
        SorvanPosix::ScopeLock lock(m_structureMutex);
        // The wide atom's 8 bytes become the second half of a 16-byte header; the data stays put.
        before->removeSelf(true);
        open->setHeaderSize(16);
        delete before;
    }
    return true;
}
