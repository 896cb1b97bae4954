// QtVideoSampleDesc: the entry of a video track's sample description table: the classic fixed
// video fields (size, resolution, compressor name, depth), an optional colour table, and the
// extension atoms that follow (colour, pixel aspect, clean aperture, field order, codec
// configuration), kept in a Qtx container. Recording code creates one with
// QtAtomSampleDesc::addVideoDesc and fills it through the setters, each of which keeps the size
// field up to date.
#pragma once

#include <cstdint>
#include <vector>

#include "quicktime/atoms/QtFields.h"
#include "quicktime/descriptions/QtSampleDesc.h"
#include "quicktime/descriptions/Qtx.h"

class QtVideoSampleDesc : public QtSampleDesc {
public:
    static constexpr unsigned int kFixedSize = 86;

    // One colour table entry as stored: index value, red, green, blue.
    struct ColorTableEntry {
        uint16_t value, red, green, blue;
    };

    QtVideoSampleDesc(QtAtomSampleDesc const& owner, unsigned short dataRefIndex);

    bool decode(QtAtomBuffer& buffer) override;
    bool encode(QtAtomBuffer& buffer) const override;
    void show(unsigned int indent) const override;
    unsigned int getFixedSize() const override { return kFixedSize; }
    // The stored extension bytes and room for the terminator word; 0 without extensions.
    unsigned int getExtensionSize() const override;

    // Each places or replaces one extension atom and refreshes the size.
    void setColorInfo(QtAtomIdType type, ColorPrimaries primaries, ColorTransferFunction transfer,
                      ColorMatrix matrix);
    void setPixelAspectRatio(unsigned int hSpacing, unsigned int vSpacing);
    void setCleanApertureDimensions(unsigned int widthN, unsigned int widthD, unsigned int heightN,
                                    unsigned int heightD);
    void setFieldInfo(unsigned char fields, FieldDetail detail);
    void setACLR(unsigned int first, unsigned int color);
    void setAPRG(unsigned int first, unsigned int program);
    void setARES(unsigned int first, unsigned int compressionId, unsigned int width, unsigned int height,
                 unsigned int fields, unsigned int format);
    // Places an empty 'avcC' reserving its largest size, so that setAvcSpsPps can fill it in after
    // the first frames without the entry's size changing.
    void setAvcDecoderInfo();
    // Fills the 'avcC' placed by setAvcDecoderInfo; the size is deliberately left as it is. False
    // (nothing changed) without that earlier call.
    bool setAvcSpsPps(unsigned int spsLength, unsigned char const* sps, unsigned int ppsLength,
                      unsigned char const* pps);

    // Version, revision, size, resolution, depth, colour table id and field mode must agree; vendor,
    // qualities, data size, frame count, compressor name, colour table contents and the other
    // extensions are deliberately not compared.
    bool operator==(QtVideoSampleDesc const& other) const;

    void setDimensions(unsigned short width, unsigned short height);
    void setDepth(unsigned short depth) { m_depth = depth; }
    void setCompressorName(char const* name) { m_compressorName = name; }

    unsigned short getVersion() const { return m_version; }
    unsigned short getRevision() const { return m_revision; }
    QtAtomIdType getVendor() const { return m_vendor; }
    unsigned short getWidth() const { return m_width; }
    unsigned short getHeight() const { return m_height; }
    uint32_t getHorizontalResolution() const { return m_horizontalResolution; }
    uint32_t getVerticalResolution() const { return m_verticalResolution; }
    unsigned short getFrameCount() const { return m_frameCount; }
    char const* getCompressorName() const { return m_compressorName.getString(); }
    unsigned short getDepth() const { return m_depth; }
    short getColorTableId() const { return m_colorTableId; }
    // 0 unknown, 1 two fields, 2 one field.
    uint32_t getFieldMode() const { return m_fieldMode; }
    Qtx const& getExtensions() const { return m_extensions; }

private:
    static constexpr unsigned int kColorTableHeaderSize = 16;

    // Reads the colour table after the fixed fields; false (with an error message) when it is not
    // one this class reads.
    bool decodeColorTable(QtAtomBuffer& buffer);
    static uint32_t fieldModeOf(unsigned int fields);

    unsigned short m_version = 0;
    unsigned short m_revision = 0;
    QtAtomIdType m_vendor = 0;
    uint32_t m_temporalQuality = 0;
    uint32_t m_spatialQuality = 0;
    unsigned short m_width = 0;
    unsigned short m_height = 0;
    uint32_t m_horizontalResolution = 0;
    uint32_t m_verticalResolution = 0;
    uint32_t m_dataSize = 0;
    unsigned short m_frameCount = 1;
    QtFixedPascalString<32> m_compressorName;
    unsigned short m_depth = 0;
    short m_colorTableId = -1;
    // Entries written back when the colour table id is 0. Decoding reads a table but leaves the
    // count at 0, so that a table read is not written again.
    uint32_t m_colorTableCount = 0;
    std::vector<ColorTableEntry> m_colorTable;
    uint32_t m_fieldMode = 0;
    Qtx m_extensions;
};
