#include "quicktime/descriptions/Qtx.h"

#include <algorithm>

#include "framework/FormatStr.h"
#include "framework/Messages.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/descriptions/QtxACLR.h"
#include "quicktime/descriptions/QtxARES.h"
#include "quicktime/descriptions/QtxAtom.h"
#include "quicktime/descriptions/QtxAvcDecoderInfo.h"
#include "quicktime/descriptions/QtxCleanAperture.h"
#include "quicktime/descriptions/QtxColorInfo.h"
#include "quicktime/descriptions/QtxEndian.h"
#include "quicktime/descriptions/QtxFieldInfo.h"
#include "quicktime/descriptions/QtxFormat.h"
#include "quicktime/descriptions/QtxMpeg4ElementaryStreamDescriptor.h"
#include "quicktime/descriptions/QtxPixelAspectRatio.h"

namespace {

using Maker = Qtx::Atom* (*)(unsigned int size);

template <class T>
Qtx::Atom* make(unsigned int size) {
    return new T(size);
}

// The 'avcC' object starts as the empty reservation; decoding gives it its real size.
Qtx::Atom* makeAvc(unsigned int) { return new Qtx::AvcDecoderInfo(); }

struct ExtensionRow {
    QtAtomIdType type;
    Maker make;
};

// One row per interpreted type; any other type is kept verbatim as Qtx::Unknown.
constexpr ExtensionRow kExtensionTable[] = {
    {qtId("colr"), make<Qtx::ColorInfo>},
    {qtId("pasp"), make<Qtx::PixelAspectRatio>},
    {qtId("clap"), make<Qtx::CleanAperture>},
    {qtId("fiel"), make<Qtx::FieldInfo>},
    {qtId("enda"), make<Qtx::Endian>},
    {qtId("frma"), make<Qtx::Format>},
    {qtId("wave"), make<Qtx::Wave>},
    {qtId("ACLR"), make<Qtx::ACLR>},
    {qtId("APRG"), make<Qtx::APRG>},
    {qtId("ARES"), make<Qtx::ARES>},
    {qtId("avcC"), makeAvc},
    {qtId("esds"), make<Qtx::Mpeg4ElementaryStreamDescriptor>},
    {0, make<Qtx::Terminator>},
};

Qtx::Atom* makeExtension(QtAtomIdType type, unsigned int size) {
    for (ExtensionRow const& row : kExtensionTable)
        if (row.type == type) return row.make(size);
    return new Qtx::Unknown(type, size);
}

// The bytes encode() will write for this subtree. Kept sizes are not trusted here: an atom filled in
// place leaves its parents' kept sizes as they were.
unsigned int encodedSize(Qtx::Atom const& atom) {
    if (!atom.getChild()) return atom.getSize();
    unsigned int size = atom.isRoot() ? 0 : Qtx::Atom::kHeaderSize;
    for (Qtx::Atom const* child = atom.getChild(); child; child = child->getSibling())
        size += encodedSize(*child);
    return size;
}

}  // namespace

Qtx::Atom* Qtx::create(QtAtomBuffer& buffer, unsigned int available) {
    available = std::min(available, buffer.nOccupied());
    if (available < Atom::kHeaderSize) return nullptr;
    unsigned int size = BaseQtAtom::decodeUint32(buffer);
    QtAtomIdType type = BaseQtAtom::decodeUint32(buffer);
    if (size > available) return nullptr;
    if (size == 0 && type == 0) return nullptr;
    if (size < Atom::kHeaderSize) return nullptr;
    Atom* atom = makeExtension(type, size);
    unsigned int before = buffer.nOccupied();
    bool ok = atom->decode(buffer, size);
    // A body must account for exactly the bytes its header claims, or the atoms after it would be
    // read from the wrong place.
    if (!ok || atom->getSize() != size || before - buffer.nOccupied() != size - Atom::kHeaderSize) {
        delete atom;
        return nullptr;
    }
    return atom;
}

Qtx::Qtx() : m_root(new Root()) {}

Qtx::~Qtx() = default;

// The tree is parsed ahead from the caller's buffer, which then gets the bytes back for the raw copy.
bool Qtx::decode(QtAtomBuffer& buffer, unsigned int length) {
    length = std::min(length, buffer.nOccupied());
    m_root.reset(new Root());
    unsigned int start = buffer.bufferOffset();
    bool parsed = m_root->decode(buffer, length);
    buffer.prepend(buffer.bufferOffset() - start);
    m_bytes.decode(buffer, length);
    return parsed;
}

bool Qtx::encode(QtAtomBuffer& buffer) const {
    m_bytes.encode(buffer);
    return true;
}

bool Qtx::isEmpty() const { return m_root->getChild() == nullptr; }

unsigned int Qtx::getPaddingSize() const {
    unsigned int tree = m_root->getSize();
    return m_bytes.getSize() > tree ? m_bytes.getSize() - tree : 0;
}

bool Qtx::isLittleEndian(bool defaultValue) const {
    Atom const* endian = m_root->findChild(qtId("enda"));
    return endian ? endian->isLittleEndian() : defaultValue;
}

unsigned char Qtx::getNumFields(unsigned char defaultValue) const {
    Atom const* fields = m_root->findChild(qtId("fiel"));
    if (!fields) fields = m_root->findChild(qtId("ARES"));
    return fields ? static_cast<unsigned char>(fields->getNumFields()) : defaultValue;
}

Qtx::Atom const* Qtx::findAtom(QtAtomIdType type) const {
    Atom const* child = m_root->getChild();
    for (; child; child = child->getSibling())
        if (Atom const* found = child->findChild(type)) return found;
    return nullptr;
}

AutoPtr<char> Qtx::toString() const { return m_root->treeString(); }

void Qtx::storeTree(unsigned int areaSize) {
    m_root->getSize();  // keep the tree's size as of this encoding (see setAvcSpsPps)
    unsigned int capacity = std::max(areaSize, encodedSize(*m_root));
    QtAtomBuffer scratch(capacity);
    scratch.append(capacity, true);
    scratch.reset(QtAtomBuffer::Empty);
    m_root->encode(scratch);
    scratch.reset(QtAtomBuffer::Full);
    m_bytes.decode(scratch, areaSize);
}

void Qtx::writeAtom(Atom* atom) {
    if (!atom) return;
    m_root->replaceChild(atom);
    storeTree(std::max(m_root->getSize(), encodedSize(*m_root)));
}

void Qtx::setColorInfo(QtAtomIdType type, ColorPrimaries primaries, ColorTransferFunction transfer,
                       ColorMatrix matrix) {
    auto* atom = new ColorInfo();
    atom->set(type, primaries, transfer, matrix);
    writeAtom(atom);
}

void Qtx::setPixelAspectInfo(unsigned int hSpacing, unsigned int vSpacing) {
    auto* atom = new PixelAspectRatio();
    atom->set(hSpacing, vSpacing);
    writeAtom(atom);
}

void Qtx::setCleanAptInfo(unsigned int widthN, unsigned int widthD, unsigned int heightN,
                          unsigned int heightD) {
    auto* atom = new CleanAperture();
    atom->set(widthN, widthD, heightN, heightD);
    writeAtom(atom);
}

void Qtx::setFieldInfo(unsigned char fields, FieldDetail detail) {
    auto* atom = new FieldInfo();
    atom->set(fields, detail);
    writeAtom(atom);
}

void Qtx::setACLR(unsigned int first, unsigned int color) {
    auto* atom = new ACLR();
    atom->set(first, color);
    writeAtom(atom);
}

void Qtx::setAPRG(unsigned int first, unsigned int program) {
    auto* atom = new APRG();
    atom->set(first, program);
    writeAtom(atom);
}

void Qtx::setARES(unsigned int first, unsigned int compressionId, unsigned int width, unsigned int height,
                  unsigned int fields, unsigned int format) {
    auto* atom = new ARES();
    atom->set(first, compressionId, width, height, fields, format);
    writeAtom(atom);
}

void Qtx::setLittleEndian() {
    auto* wave = new Wave();
    auto* format = new Format();
    format->set(qtId("in24"));
    wave->appendChild(format);
    auto* endian = new Endian();
    endian->set(1);
    wave->appendChild(endian);
    m_root->replaceChild(wave);
    // Under the root, after the group, not inside it.
    writeAtom(new Terminator());
}

void Qtx::setMpeg4DecoderInfo(unsigned int bitRate, unsigned int sampleRate, unsigned int channels) {
    auto* wave = new Wave();
    auto* format = new Format();
    format->set(qtId("mp4a"));
    wave->appendChild(format);
    auto* esds = new Mpeg4ElementaryStreamDescriptor();
    esds->set(bitRate, sampleRate, channels);
    wave->appendChild(esds);
    wave->appendChild(new Terminator());
    writeAtom(wave);
}

void Qtx::setAvcDecoderInfo() { writeAtom(new AvcDecoderInfo()); }

bool Qtx::setAvcSpsPps(unsigned int spsLength, unsigned char const* sps, unsigned int ppsLength,
                       unsigned char const* pps) {
    auto* avc = dynamic_cast<AvcDecoderInfo*>(m_root->findChild(qtId("avcC")));
    if (!avc) return false;
    // An 'avcC' placed by setAvcDecoderInfo reserved the largest size; one read from a file may have
    // less room than new parameter sets need, and the area must not grow here.
    unsigned int others = encodedSize(*m_root) - avc->getSize();
    unsigned int room = m_bytes.getSize() > others ? m_bytes.getSize() - others : 0;
    bool sizesAllowed = spsLength <= AvcDecoderInfo::kMaxParameterSetLength &&
                        ppsLength <= AvcDecoderInfo::kMaxParameterSetLength;
    if (sizesAllowed && spsLength + 19 + ppsLength > room) {
        errorMsg("Error: parameter sets of %u bytes do not fit in the %u bytes reserved for 'stsd:avcC'\n",
                 spsLength + ppsLength, room);
        return false;
    }
    if (!avc->set(spsLength, sps, ppsLength, pps)) return false;
    storeTree(m_bytes.getSize());
    return true;
}
