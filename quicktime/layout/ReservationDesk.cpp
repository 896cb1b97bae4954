#include "quicktime/layout/ReservationDesk.h"

#include <string>

#include "framework/FormatStr.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtDebug.h"

namespace {
constexpr QtAtomIdType kMoov = qtId("moov");
constexpr QtAtomIdType kSkip = qtId("skip");
}  // namespace

ReservationDesk::ReservationDesk(BaseQtAtom const& atom)
    : m_atom(atom), m_offset(atom.getFileOffset()), m_size(atom.getSize()) {
    atom.nonConst()->m_desk = this;
}

ReservationDesk::ReservationDesk(BaseQtAtom const& atom, ReservationDesk& from)
    : m_atom(atom), m_offset(atom.getFileOffset()), m_size(atom.getSize()) {
    atom.nonConst()->m_desk = this;
    SorvanPosix::ScopeLock lock(from.m_mutex);
    if (quicktimeDbg.on(QtDbgReservations))
        debugMsg("atom %s@%p gets %s from atom %s@%p\n", QtIdName(atom.getId()).render(),
                 static_cast<void const*>(&atom), from.listText().get(),
                 QtIdName(from.m_atom.getId()).render(), static_cast<void const*>(&from.m_atom));
    m_held = from.m_held;
    from.m_held.clear();
}

ReservationDesk::~ReservationDesk() {
    if (m_atom.m_desk == this) m_atom.nonConst()->m_desk = nullptr;
}

void ReservationDesk::setPlace(unsigned long offset, unsigned long size) {
    SorvanPosix::ScopeLock lock(m_mutex);
    m_offset = offset;
    m_size = size;
}

bool ReservationDesk::update(VirtualBase::Reservation const& r) {
    SorvanPosix::ScopeLock lock(m_mutex);
    QtAtomIdType id = m_atom.getId();
    unsigned long end = m_offset + m_size;
    unsigned long rEnd = r.offset + r.size;
    if (rEnd <= m_offset) return false;
    if (end <= r.offset && id != kMoov) return false;
    if ((r.offset < m_offset || rEnd > end) && id != kMoov && id != kSkip)
        errorMsg("%s: %s partly overlaps atom %s@{%ld,%d}\n", "ReservationDesk::update", r.toString().get(),
                 m_atom.getAtomPath().get(), static_cast<long>(m_offset), static_cast<int>(m_size));

    auto match = m_held.end();
    for (auto it = m_held.begin(); it != m_held.end();) {
        if (it->release) {
            errorMsg("%s: %s in list??\n", "ReservationDesk::update", it->toString().get());
            it = m_held.erase(it);
            continue;
        }
        if (it->offset == r.offset) match = it;
        ++it;
    }
    bool trace = quicktimeDbg.on(QtDbgReservations);
    void const* atom = &m_atom;
    if (match != m_held.end() && !r.release) {
        warningMsg("%s: %s duplicate\n", "ReservationDesk::update", r.toString().get());
    } else if (match != m_held.end()) {
        m_held.erase(match);
        if (trace)
            debugMsg("atom %s@%p loses resv %s, %d left\n", QtIdName(id).render(), atom, r.toString().get(),
                     static_cast<int>(m_held.size()));
    } else if (!r.release) {
        m_held.push_back(r);
        if (trace)
            debugMsg("atom %s@%p gets resv %s, %d total\n", QtIdName(id).render(), atom, r.toString().get(),
                     static_cast<int>(m_held.size()));
    } else if (trace) {
        debugMsg("unk resv released %s in %s@%p{%ld,%d} w/ %s\n", r.toString().get(), QtIdName(id).render(),
                 atom, static_cast<long>(m_offset), static_cast<int>(m_size), listText().get());
    }
    return true;
}

void ReservationDesk::close() {
    SorvanPosix::ScopeLock lock(m_mutex);
    if (!m_held.empty())
        debugMsg("%s %s: Qt atom reservation: drops %s\n", m_atom.getMoviePath(), m_atom.getAtomPath().get(),
                 listText().get());
    m_held.clear();
}

void ReservationDesk::clear() {
    SorvanPosix::ScopeLock lock(m_mutex);
    m_held.clear();
}

unsigned int ReservationDesk::size() const {
    SorvanPosix::ScopeLock lock(m_mutex);
    return static_cast<unsigned int>(m_held.size());
}

AutoPtr<char> ReservationDesk::toString() const {
    SorvanPosix::ScopeLock lock(m_mutex);
    return listText();
}

AutoPtr<char> ReservationDesk::listText() const {
    if (m_held.empty()) return copyText("<empty>");
    std::string text;
    for (VirtualBase::Reservation const& r : m_held) {
        if (!text.empty()) text += ",";
        text += r.toString().get();
    }
    return copyText(text.c_str());
}
