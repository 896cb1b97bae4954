// Qtx: the extension area of a video or audio sample description, that is the small atoms that follow
// the fixed fields inside the same 'stsd' entry (colour, pixel aspect, clean aperture, field order, the
// sound 'wave' group, codec configuration, private atoms). The container keeps the raw bytes of the
// area, which are what gets written back, together with a parsed tree of Qtx::Atom objects.
//
// Invariant: after any setter the raw bytes are the encoding of the tree (zero-filled up to the area
// size). After decode the raw bytes are exactly what was read, even when the tree could not be parsed
// to the end, so nothing of an extension area is ever lost on rewrite.
// Qtx is also the scope of the extension atom classes (Qtx::Atom and its subclasses, each declared in
// its own header) and of the factory Qtx::create. Not thread-safe: owned by one sample description.
#pragma once

#include "framework/AutoPtr.h"
#include "framework/QtAtomBuffer.h"
#include "quicktime/atoms/QtAtomIdType.h"
#include "quicktime/atoms/QtAtomPreserved.h"

// Colour parameters of an 'nclc' colour atom, written as 16-bit numbers; any other 16-bit value read
// from a file is carried through unchanged.
enum ColorPrimaries : unsigned short {
    ColorPrimariesBT709 = 1,
    ColorPrimariesUnknown = 2,
    ColorPrimariesEBU3213 = 5,
    ColorPrimariesSMPTE170M = 6,
    ColorPrimariesBT2020 = 9,
};
enum ColorTransferFunction : unsigned short {
    ColorTransferBT709 = 1,
    ColorTransferUnknown = 2,
    ColorTransferSMPTE240M = 7,
    ColorTransferSMPTE2084 = 16,
    ColorTransferHLG = 18,
};
enum ColorMatrix : unsigned short {
    ColorMatrixBT709 = 1,
    ColorMatrixUnknown = 2,
    ColorMatrixBT601 = 6,
    ColorMatrixSMPTE240M = 7,
    ColorMatrixBT2020 = 9,
};
// Field order detail of a 'fiel' atom, written as an 8-bit number.
enum FieldDetail : unsigned char {
    FieldDetailUnknown = 0,
    FieldDetailTopFirst = 1,
    FieldDetailBottomFirst = 6,
    FieldDetailFirstLineEarly = 9,
    FieldDetailFirstLineLate = 14,
};

class Qtx {
public:
    class Atom;
    class Root;
    class Terminator;
    class Wave;
    class Unknown;
    class ColorInfo;
    class PixelAspectRatio;
    class CleanAperture;
    class FieldInfo;
    class Endian;
    class Format;
    class ACLR;
    class APRG;
    class ARES;
    class AvcDecoderInfo;
    class Mpeg4ElementaryStreamDescriptor;

    // Reads one extension atom from at most `available` bytes of the buffer (never more than it
    // holds). Null at the end mark (size and type 0), for a header that does not fit or is too small,
    // and for a body that cannot be decoded; the 8 header bytes are consumed whenever they were there.
    static Atom* create(QtAtomBuffer& buffer, unsigned int available);

    Qtx();
    ~Qtx();
    Qtx(Qtx const&) = delete;
    Qtx& operator=(Qtx const&) = delete;

    // Keeps `length` bytes of the buffer as the raw area (fewer when the buffer holds fewer) and
    // parses them into the tree. False when the parse stopped before the end of the area; the raw
    // bytes are kept whole either way.
    bool decode(QtAtomBuffer& buffer, unsigned int length);
    // Writes the raw bytes as kept, never the tree.
    bool encode(QtAtomBuffer& buffer) const;

    bool isEmpty() const;
    // Raw byte count: what encode() writes.
    unsigned int getSize() const { return m_bytes.getSize(); }
    unsigned char const* getData() const { return m_bytes.getData(); }
    // Raw bytes beyond the encoded tree (a trailing zero word, unparsed bytes); 0 when none.
    unsigned int getPaddingSize() const;
    // The answer of an 'enda' atom anywhere in the tree, else `defaultValue`.
    bool isLittleEndian(bool defaultValue) const;
    // The field count of 'fiel', else of 'ARES', else `defaultValue`.
    unsigned char getNumFields(unsigned char defaultValue) const;
    // The first atom of that type in the tree (depth first), or null.
    Atom const* findAtom(QtAtomIdType type) const;
    Root const& getRoot() const { return *m_root; }
    AutoPtr<char> toString() const;

    // Places `atom` (owned from now on) under the root, replacing any child of its type, and
    // re-encodes the tree into the raw bytes.
    void writeAtom(Atom* atom);

    void setColorInfo(QtAtomIdType type, ColorPrimaries primaries, ColorTransferFunction transfer,
                      ColorMatrix matrix);
    void setPixelAspectInfo(unsigned int hSpacing, unsigned int vSpacing);
    void setCleanAptInfo(unsigned int widthN, unsigned int widthD, unsigned int heightN,
                         unsigned int heightD);
    void setFieldInfo(unsigned char fields, FieldDetail detail);
    void setACLR(unsigned int first, unsigned int color);
    void setAPRG(unsigned int first, unsigned int program);
    void setARES(unsigned int first, unsigned int compressionId, unsigned int width, unsigned int height,
                 unsigned int fields, unsigned int format);
    // A 'wave' group ('frma' "in24", 'enda' 1) followed, under the root, by a terminator atom.
    void setLittleEndian();
    // A 'wave' group ('frma' "mp4a", an 'esds' built from the three numbers, a terminator atom).
    void setMpeg4DecoderInfo(unsigned int bitRate, unsigned int sampleRate, unsigned int channels);
    // Places an empty 'avcC' that reserves the largest size, to be filled in by setAvcSpsPps.
    void setAvcDecoderInfo();
    // Fills the 'avcC' placed earlier and re-encodes the tree into the area's present size, so the
    // description's size does not change. False (nothing changed) without an 'avcC', when the
    // parameter sets are refused, or when they would not fit in the area.
    bool setAvcSpsPps(unsigned int spsLength, unsigned char const* sps, unsigned int ppsLength,
                      unsigned char const* pps);

private:
    // Re-encodes the tree into `areaSize` raw bytes, zero-filled after the tree.
    void storeTree(unsigned int areaSize);

    QtPreserved m_bytes;
    AutoPtr<Root> m_root;
};
