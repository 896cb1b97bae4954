#include "quicktime/descriptions/QtVideoSampleDesc.h"

#include "framework/FixedPoint.h"
#include "framework/Messages.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtIdName.h"

namespace {

constexpr uint32_t kColorTableSeed = 0;
constexpr unsigned short kColorTableFlags = 0x8000;
constexpr unsigned int kColorTableEntrySize = 8;

AutoPtr<char> fixedText(uint32_t value) { return FixedPoint<16u>(AlreadyFixed{}, value).toString(); }

}  // namespace

QtVideoSampleDesc::QtVideoSampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex)
    : QtSampleDesc(owner, kFixedSize, dataRefIndex) {}

uint32_t QtVideoSampleDesc::fieldModeOf(unsigned int fields) {
    if (fields == 1) return 2;
    if (fields == 2) return 1;
    return 0;
}

bool QtVideoSampleDesc::decode(QtAtomBuffer& buffer) {
    unsigned int start = buffer.bufferOffset();
    if (!QtSampleDesc::decode(buffer)) return false;
    if (keepIfShort(buffer, kFixedSize)) return true;
    m_version = BaseQtAtom::decodeUint16(buffer);
    m_revision = BaseQtAtom::decodeUint16(buffer);
    m_vendor = BaseQtAtom::decodeUint32(buffer);
    m_temporalQuality = BaseQtAtom::decodeUint32(buffer);
    m_spatialQuality = BaseQtAtom::decodeUint32(buffer);
    m_width = BaseQtAtom::decodeUint16(buffer);
    m_height = BaseQtAtom::decodeUint16(buffer);
    m_horizontalResolution = BaseQtAtom::decodeUint32(buffer);
    m_verticalResolution = BaseQtAtom::decodeUint32(buffer);
    m_dataSize = BaseQtAtom::decodeUint32(buffer);
    m_frameCount = BaseQtAtom::decodeUint16(buffer);
    m_compressorName.decode(buffer);
    m_depth = BaseQtAtom::decodeUint16(buffer);
    m_colorTableId = BaseQtAtom::decodeInt16(buffer);
    if (m_colorTableId >= 0 && !decodeColorTable(buffer)) return false;
    unsigned int read = buffer.bufferOffset() - start;
    if (read < m_size) m_extensions.decode(buffer, m_size - read);
    if (!m_extensions.isEmpty()) m_fieldMode = fieldModeOf(m_extensions.getNumFields(0));
    read = buffer.bufferOffset() - start;
    if (read < m_size) buffer.removeInput(m_size - read);
    return true;
}

bool QtVideoSampleDesc::decodeColorTable(QtAtomBuffer& buffer) {
    if (buffer.nOccupied() < kColorTableHeaderSize) return false;
    buffer.removeInput(4);  // the table's size, not relied on
    QtAtomIdType type = BaseQtAtom::decodeUint32(buffer);
    if (type != qtId("ctab")) {
        errorMsg("Error: expected color table type 'ctab'; decoded '%s'\n", QtIdName(type).render());
        return false;
    }
    uint32_t seed = BaseQtAtom::decodeUint32(buffer);
    if (seed != kColorTableSeed) {
        errorMsg("Error: expected color table seed to be 0; decoded %d\n", static_cast<int>(seed));
        return false;
    }
    unsigned short flags = BaseQtAtom::decodeUint16(buffer);
    if (flags != kColorTableFlags) {
        errorMsg("Error: expected color table flags to be 0x8000; decoded 0x%x\n", flags);
        return false;
    }
    unsigned int entries = BaseQtAtom::decodeUint16(buffer) + 1u;
    if (buffer.nOccupied() < entries * kColorTableEntrySize) return false;
    m_colorTable.resize(entries);
    for (ColorTableEntry& entry : m_colorTable) {
        entry.value = BaseQtAtom::decodeUint16(buffer);
        entry.red = BaseQtAtom::decodeUint16(buffer);
        entry.green = BaseQtAtom::decodeUint16(buffer);
        entry.blue = BaseQtAtom::decodeUint16(buffer);
    }
    return true;
}

bool QtVideoSampleDesc::encode(QtAtomBuffer& buffer) const {
    unsigned int start = buffer.nOccupied();
    QtSampleDesc::encode(buffer);
    if (!isKeptWhole()) {
        BaseQtAtom::encode(buffer, m_version);
        BaseQtAtom::encode(buffer, m_revision);
        BaseQtAtom::encode(buffer, m_vendor);
        BaseQtAtom::encode(buffer, m_temporalQuality);
        BaseQtAtom::encode(buffer, m_spatialQuality);
        BaseQtAtom::encode(buffer, m_width);
        BaseQtAtom::encode(buffer, m_height);
        BaseQtAtom::encode(buffer, m_horizontalResolution);
        BaseQtAtom::encode(buffer, m_verticalResolution);
        BaseQtAtom::encode(buffer, m_dataSize);
        BaseQtAtom::encode(buffer, m_frameCount);
        m_compressorName.encode(buffer);
        BaseQtAtom::encode(buffer, m_depth);
        BaseQtAtom::encode(buffer, m_colorTableId);
        unsigned int tableEntries = m_colorTableId == 0 ? m_colorTableCount : 0;
        for (unsigned int i = 0; i < tableEntries && i < m_colorTable.size(); ++i) {
            ColorTableEntry const& entry = m_colorTable[i];
            for (uint16_t value : {entry.value, entry.red, entry.green, entry.blue})
                BaseQtAtom::encode(buffer, value);
        }
        // The stored bytes carry their own terminator when they have room for one; an entry read
        // from a file without one (its size says so) is written back without it.
        if (m_extensions.getSize() && m_extensions.getSize() <= roomLeft(buffer, start))
            m_extensions.encode(buffer);
        if (!m_extensions.isEmpty() && m_extensions.getPaddingSize() < 4 && roomLeft(buffer, start) >= 4)
            BaseQtAtom::encode(buffer, 0u);
    }
    padToSize(buffer, start);
    return true;
}

unsigned int QtVideoSampleDesc::getExtensionSize() const {
    return m_extensions.isEmpty() ? 0 : m_extensions.getSize() + 4;
}

void QtVideoSampleDesc::show(unsigned int indent) const {
    infoMsg("%*svideo: ", static_cast<int>(indent), "");
    showHeader();
    int next = static_cast<int>(indent + 2);
    infoMsg(",v%d,rev%d,%s,\n%*stq%d,sq%d,sz=%dx%d,pix/in=%sx%s,%df/s,\n%*s%s,%dbits,ctId=%d,ct[%d]",
            m_version, m_revision, QtIdName(m_vendor).render(), next, "", static_cast<int>(m_temporalQuality),
            static_cast<int>(m_spatialQuality), m_width, m_height, fixedText(m_horizontalResolution).get(),
            fixedText(m_verticalResolution).get(), m_frameCount, next, "", m_compressorName.getString(),
            m_depth, m_colorTableId, static_cast<int>(m_colorTableCount));
    if (!m_extensions.isEmpty()) infoMsg(",\n%*sext=%s", next, "", m_extensions.toString().get());
}

void QtVideoSampleDesc::setColorInfo(QtAtomIdType type, ColorPrimaries primaries,
                                     ColorTransferFunction transfer, ColorMatrix matrix) {
    m_extensions.setColorInfo(type, primaries, transfer, matrix);
    updateSize();
}

void QtVideoSampleDesc::setPixelAspectRatio(unsigned int hSpacing, unsigned int vSpacing) {
    m_extensions.setPixelAspectInfo(hSpacing, vSpacing);
    updateSize();
}

void QtVideoSampleDesc::setCleanApertureDimensions(unsigned int widthN, unsigned int widthD,
                                                   unsigned int heightN, unsigned int heightD) {
    m_extensions.setCleanAptInfo(widthN, widthD, heightN, heightD);
    updateSize();
}

void QtVideoSampleDesc::setFieldInfo(unsigned char fields, FieldDetail detail) {
    m_fieldMode = fieldModeOf(fields);
    m_extensions.setFieldInfo(fields, detail);
    updateSize();
}

void QtVideoSampleDesc::setACLR(unsigned int first, unsigned int color) {
    m_extensions.setACLR(first, color);
    updateSize();
}

void QtVideoSampleDesc::setAPRG(unsigned int first, unsigned int program) {
    m_extensions.setAPRG(first, program);
    updateSize();
}

void QtVideoSampleDesc::setARES(unsigned int first, unsigned int compressionId, unsigned int width,
                                unsigned int height, unsigned int fields, unsigned int format) {
    m_extensions.setARES(first, compressionId, width, height, fields, format);
    updateSize();
}

void QtVideoSampleDesc::setAvcDecoderInfo() {
    m_extensions.setAvcDecoderInfo();
    updateSize();
}

bool QtVideoSampleDesc::setAvcSpsPps(unsigned int spsLength, unsigned char const* sps, unsigned int ppsLength,
                                     unsigned char const* pps) {
    return m_extensions.setAvcSpsPps(spsLength, sps, ppsLength, pps);
}

void QtVideoSampleDesc::setDimensions(unsigned short width, unsigned short height) {
    m_width = width;
    m_height = height;
}

bool QtVideoSampleDesc::operator==(QtVideoSampleDesc const& other) const {
    return m_version == other.m_version && m_revision == other.m_revision && m_width == other.m_width &&
           m_height == other.m_height && m_horizontalResolution == other.m_horizontalResolution &&
           m_verticalResolution == other.m_verticalResolution && m_depth == other.m_depth &&
           m_colorTableId == other.m_colorTableId && m_fieldMode == other.m_fieldMode;
}
