// Qtx::ARES: a private extension atom written after some intermediate video codecs' descriptions,
// giving the codec's compression id, the encoded picture size, the field count and a format code.
// The bit depth (10 or 8) follows from the compression id. Bytes after the format code (80 zero bytes
// when built) are kept as read.
#pragma once

#include "quicktime/descriptions/QtxAtom.h"

class Qtx::ARES : public Qtx::Atom {
public:
    static constexpr unsigned int kBuiltSize = 120;

    explicit ARES(unsigned int size = kBuiltSize);
    void set(unsigned int first, unsigned int compressionId, unsigned int width, unsigned int height,
             unsigned int fields, unsigned int format);

    unsigned int getNumFields() const override { return m_fields; }
    unsigned int getDnxHDCompressionID() const override { return m_compressionId; }
    unsigned int getEncodedWidth() const override { return m_width; }
    unsigned int getEncodedHeight() const override { return m_height; }
    unsigned int getFormat() const { return m_format; }
    unsigned int getBitDepth() const { return m_bitDepth; }

    bool encode(QtAtomBuffer& buffer) override;
    using Atom::decode;
    bool decode(QtAtomBuffer& buffer) override;
    AutoPtr<char> toString() const override;

    // "1080i" (4), "1080p" (5), "720p" (6), else "??".
    static char const* formatName(unsigned int format);
    // 10 for the compression ids 1235, 1241 and 1250, else 8.
    static unsigned int bitDepthOf(unsigned int compressionId);

private:
    static constexpr unsigned int kFieldBytes = 32;

    QtAtomIdType m_tag;  // the type repeated as the first body word
    unsigned int m_first = 0;
    unsigned int m_compressionId = 0;
    unsigned int m_width = 0;
    unsigned int m_height = 0;
    unsigned int m_fields = 0;
    unsigned int m_reserved = 0;  // the word between the field count and the format, kept as read
    unsigned int m_format = 0;
    unsigned int m_bitDepth = 8;
};
