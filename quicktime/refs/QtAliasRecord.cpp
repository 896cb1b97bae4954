#include "quicktime/refs/QtAliasRecord.h"

#include <algorithm>
#include <cstring>

#include "framework/FormatStr.h"
#include "framework/Messages.h"
#include "framework/PathParser.h"
#include "framework/QtAtomBuffer.h"
#include "quicktime/atoms/BaseQtAtom.h"
#include "quicktime/atoms/QtDebug.h"
#include "quicktime/atoms/QtFields.h"
#include "quicktime/refs/QtAliasText.h"
#include "quicktime/refs/QtParsedPath.h"

namespace {

constexpr EnumMap::Pair kMarkNames[] = {
    {QtAliasRecord::MarkEnd, "end"},     {QtAliasRecord::MarkDir, "dir"},
    {QtAliasRecord::MarkUnk1, "unk-1"},  {QtAliasRecord::MarkAbs, "abs"},
    {QtAliasRecord::MarkUnk3, "unk-3"},  {QtAliasRecord::MarkUnk4, "unk-4"},
    {QtAliasRecord::MarkUnk5, "unk-5"},  {QtAliasRecord::MarkUnk6, "unk-6"},
    {QtAliasRecord::MarkUnk7, "unk-7"},  {QtAliasRecord::MarkUnk8, "unk-8"},
    {QtAliasRecord::MarkUnk9, "unk-9"},  {QtAliasRecord::MarkMax, "max"},
    {QtAliasRecord::MarkDrive, "drive"},
};

// Record lengths at or above this read back as "the rest of the record".
constexpr unsigned int kLongestRecord = 0x7FFF;
// Records listed by show() unless every entry is asked for.
constexpr unsigned int kShownRecords = 16;

// Names are stored as fixed-width Pascal strings in alias text: 32 bytes for the volume, 80 for
// the file.
template <unsigned Width>
std::string decodeFixedName(QtAtomBuffer& buffer) {
    QtFixedPascalString<Width> field;
    field.decode(buffer);
    return QtAliasToUTF8(field.getString()).getBuf();
}

template <unsigned Width>
void encodeFixedName(QtAtomBuffer& buffer, std::string const& utf8) {
    QtFixedPascalString<Width> field(UTF8ToQtAlias(utf8.c_str()).getBuf());
    field.encode(buffer);
}

unsigned int encodedSize(QtAliasRecord::VarInfo const& info) { return 4u + info.length + (info.length & 1u); }

// A record's data as listed: its text when every byte is printable, else its bytes in hexadecimal.
std::string renderData(QtAliasRecord::VarInfo const& info) {
    unsigned char const* data = info.data.get();
    bool printable =
        std::all_of(data, data + info.length, [](unsigned char c) { return c >= 0x20 && c != 0x7F; });
    if (printable) return QtAliasToUTF8(reinterpret_cast<char const*>(data)).getBuf();
    std::string hex = "0x";
    for (unsigned int i = 0; i < info.length; ++i) hex += FormatStr("%02x", data[i]).get();
    return hex;
}

}  // namespace

EnumMap const QtAliasRecord::aliasMarkTypeMap(kMarkNames, sizeof kMarkNames / sizeof kMarkNames[0]);

void QtAliasRecord::clearVarInfo() {
    // Unlink before destroying so that a long list does not unwind recursively.
    while (m_varInfo) {
        AutoPtr<VarInfo> next(m_varInfo->next.release());
        m_varInfo = std::move(next);
    }
    m_lastVarInfo = nullptr;
}

QtAliasRecord::VarInfo* QtAliasRecord::newVarInfo(Mark tag, unsigned short length, void const* data) {
    auto* info = new VarInfo;
    info->tag = tag;
    info->length = length;
    info->data.reset(new unsigned char[length + 1u]());
    if (data) memcpy(info->data.get(), data, length);
    if (m_lastVarInfo)
        m_lastVarInfo->next.reset(info);
    else
        m_varInfo.reset(info);
    m_lastVarInfo = info;
    return info;
}

QtAliasRecord::VarInfo const* QtAliasRecord::find(Mark tag) const {
    for (VarInfo const* info = m_varInfo.get(); info; info = info->next.get())
        if (info->tag == tag) return info;
    return nullptr;
}

unsigned int QtAliasRecord::getVariableSize() const {
    unsigned int size = 0;
    for (VarInfo const* info = m_varInfo.get(); info; info = info->next.get()) size += encodedSize(*info);
    if (m_size != kFixedSize + size) write().m_size = kFixedSize + size;
    return size;
}

bool QtAliasRecord::decode(QtAtomBuffer& buffer) {
    unsigned long available = buffer.nOccupied();
    if (available < kFixedSize) return false;
    m_var1 = BaseQtAtom::decodeUint16(buffer);
    m_size = BaseQtAtom::decodeUint32(buffer);
    m_var2 = BaseQtAtom::decodeUint16(buffer);
    m_var3 = BaseQtAtom::decodeUint16(buffer);
    m_drive = decodeFixedName<32>(buffer);
    m_var4 = BaseQtAtom::decodeUint32(buffer);
    m_var5 = BaseQtAtom::decodeUint32(buffer);
    m_file = decodeFixedName<80>(buffer);
    m_from = BaseQtAtom::decodeUint16(buffer);
    m_to = BaseQtAtom::decodeUint16(buffer);
    for (unsigned int& value : m_var6) value = BaseQtAtom::decodeUint32(buffer);
    clearVarInfo();
    // The size field bounds the records, and so do the bytes really there.
    decodeVarInfo(buffer,
                  std::min<unsigned long>(m_size, available) - std::min<unsigned long>(m_size, kFixedSize));
    return true;
}

// Reads records from at most `limit` bytes, up to and including an end record.
void QtAliasRecord::decodeVarInfo(QtAtomBuffer& buffer, unsigned long limit) {
    unsigned long consumed = 0;
    while (limit - consumed >= 4) {
        unsigned long after = limit - consumed - 4;  // bytes left behind this record's header
        auto tag = static_cast<Mark>(static_cast<short>(BaseQtAtom::decodeUint16(buffer)));
        unsigned int length = BaseQtAtom::decodeUint16(buffer);
        consumed += 4;
        if (tag == MarkEnd) {
            newVarInfo(tag, 0, nullptr);
            return;
        }
        // A negative length stands for the rest of the record; one longer than what is left is cut.
        bool takesRest = length > kLongestRecord;
        if (takesRest || length > after)
            length = static_cast<unsigned int>(std::min<unsigned long>(after, 0xFFFF));
        newVarInfo(tag, static_cast<unsigned short>(length), buffer.ptrData());
        unsigned long withPad = std::min<unsigned long>(length + (length & 1u), after);
        buffer.removeInput(withPad);
        consumed += withPad;
        if (takesRest) break;
    }
}

bool QtAliasRecord::encode(QtAtomBuffer& buffer) const {
    unsigned int variable = getVariableSize();
    if (!buffer.reserveRoom(kFixedSize + variable)) return false;
    BaseQtAtom::encode(buffer, m_var1);
    BaseQtAtom::encode(buffer, m_size);
    BaseQtAtom::encode(buffer, m_var2);
    BaseQtAtom::encode(buffer, m_var3);
    encodeFixedName<32>(buffer, m_drive);
    BaseQtAtom::encode(buffer, m_var4);
    BaseQtAtom::encode(buffer, m_var5);
    encodeFixedName<80>(buffer, m_file);
    BaseQtAtom::encode(buffer, m_from);
    BaseQtAtom::encode(buffer, m_to);
    for (unsigned int value : m_var6) BaseQtAtom::encode(buffer, value);
    for (VarInfo const* info = m_varInfo.get(); info; info = info->next.get()) {
        bool end = info->tag == MarkEnd;
        unsigned short length = end ? 0 : info->length;
        BaseQtAtom::encode(buffer, static_cast<unsigned short>(info->tag));
        BaseQtAtom::encode(buffer, length);
        buffer.append(info->data.get(), length);
        if (length & 1u) buffer.append(1, true);
    }
    return true;
}

bool QtAliasRecord::addText(Mark tag, char const* utf8) {
    UTF8ToQtAlias alias(utf8);
    if (alias.getLength() > kLongestRecord) {
        errorMsg("alias: the name \"%.64s...\" is %u bytes long, too long for an alias record\n", utf8,
                 alias.getLength());
        return false;
    }
    if (alias.getSubstituted())
        warningMsg("alias: %u character(s) of \"%s\" cannot be stored in an alias record and became '%c'\n",
                   alias.getSubstituted(), utf8, kAliasSubstitute);
    newVarInfo(tag, static_cast<unsigned short>(alias.getLength()), alias.getBuf());
    return true;
}

bool QtAliasRecord::setPath(char const* basePath, char const* targetPath) {
    if (!targetPath) {
        clearVarInfo();
        getVariableSize();
        return false;
    }
    // Built aside and swapped in, so that a failure leaves this record as it was. Starting from a
    // fresh record also resets the opaque fields, which described the previous target.
    QtAliasRecord next;
    if (!next.build(basePath, targetPath)) return false;
    swap(next);
    return true;
}

bool QtAliasRecord::build(char const* basePath, char const* targetPath) {
    OsEnvType env = getOsEnv();
    QtParsedPath target(targetPath, env);
    QtParsedPath base(basePath, env);
    unsigned int targetCount = target.getElemCount();
    if (basePath && strcmp(base.getRoot(), target.getRoot()) == 0) {
        unsigned int baseCount = base.getElemCount();
        unsigned int common = 0;
        while (common < std::min(baseCount, targetCount) && base.elemEqual(common, target, env)) ++common;
        m_from = static_cast<unsigned short>(std::clamp(baseCount - common, 1u, kNoRelativePath - 1u));
        m_to = static_cast<unsigned short>(std::clamp(targetCount - common, 1u, kNoRelativePath - 1u));
    } else {
        // Without a base, or on another volume, only the absolute path can find the file.
        m_from = m_to = kNoRelativePath;
    }
    m_drive = target.getRoot();
    m_file = targetCount ? target.getElem(targetCount - 1) : "";

    char const* dir = targetCount >= 2 ? target.getElem(targetCount - 2) : target.getRoot();
    if (!addText(MarkDir, dir) || !addText(MarkAbs, target.getPath(OsEnvColon).get())) return false;
    if (target.hasDrive() && !addText(MarkDrive, (std::string("    ") + target.getRoot()[0]).c_str()))
        return false;
    newVarInfo(MarkEnd, 0, nullptr);
    getVariableSize();
    return true;
}

void QtAliasRecord::swap(QtAliasRecord& other) {
    std::swap(m_var1, other.m_var1);
    std::swap(m_size, other.m_size);
    std::swap(m_var2, other.m_var2);
    std::swap(m_var3, other.m_var3);
    std::swap(m_drive, other.m_drive);
    std::swap(m_var4, other.m_var4);
    std::swap(m_var5, other.m_var5);
    std::swap(m_file, other.m_file);
    std::swap(m_from, other.m_from);
    std::swap(m_to, other.m_to);
    std::swap(m_var6, other.m_var6);
    std::swap(m_varInfo, other.m_varInfo);
    std::swap(m_lastVarInfo, other.m_lastVarInfo);
}

AutoPtr<char> QtAliasRecord::getPath(char const* moviePath) const {
    VarInfo const* abs = find(MarkAbs);
    if (!abs) return copyText(m_file.c_str());
    QtParsedPath stored(QtAliasToUTF8(reinterpret_cast<char const*>(abs->data.get())).getBuf(), OsEnvColon);
    if (moviePath && m_from != kNoRelativePath && m_to != kNoRelativePath) {
        PathParser movie(moviePath);
        // A movie too shallow for the levels stored cannot be the base: use the absolute path.
        if (movie.reroot() && movie.trimTail(m_from)) {
            std::string path = movie.getPath(1);
            if (path == "/") path.clear();
            path += stored.getPathTail(getOsEnv(), m_to).get();
            return copyText(path.c_str());
        }
    }
    VarInfo const* drive = find(MarkDrive);
    if (!drive || drive->length < 5) return stored.getPath(getOsEnv());
    std::string letter(1, static_cast<char>(drive->data.get()[4]));
    stored.setRoot(letter.c_str(), true);
    std::string path = stored.getPath(getOsEnv()).get();
    // A slash path renders no root of its own: the drive goes in front of it here.
    if (getOsEnv() == OsEnvUnix || getOsEnv() == OsEnvMacOSX) path = letter + ":" + path;
    return copyText(path.c_str());
}

void QtAliasRecord::show(unsigned int indent) const {
    int in = static_cast<int>(indent);
    bool hideValues = quicktimeDbg.on(QtDbgNoFileOffsets);
    if (hideValues)
        infoMsg("%*svar1=0x%x,size=XXX,var2=0x%x,var3=0x%x,drive=X\n", in, "", m_var1, m_var2, m_var3);
    else
        infoMsg("%*svar1=0x%x,size=%d,var2=0x%x,var3=0x%x,drive=%s\n", in, "", m_var1, m_size, m_var2, m_var3,
                m_drive.c_str());
    infoMsg("%*svar4=0x%x,var5=0x%x,file=%s,from=%d,to=%d\n", in, "", m_var4, m_var5, m_file.c_str(), m_from,
            m_to);
    infoMsg("%*svar6[4]={0x%x,%x,%x,%x}\n", in, "", m_var6[0], m_var6[1], m_var6[2], m_var6[3]);
    bool all = quicktimeDbg.on(QtDbgAllSizes);
    unsigned int listed = 0;
    unsigned int total = 0;
    for (VarInfo const* info = m_varInfo.get(); info; info = info->next.get(), ++total)
        if (all || listed < kShownRecords) {
            showVarInfo(*info, indent, hideValues);
            ++listed;
        }
    if (listed < total) infoMsg("%*s... %u more\n", in, "", total - listed);
}

void QtAliasRecord::showVarInfo(VarInfo const& info, unsigned int indent, bool hideValues) const {
    int in = static_cast<int>(indent);
    char const* name = aliasMarkTypeMap.mapValue(info.tag);
    if (info.tag == MarkEnd) {
        infoMsg("%*s%s\n", in, "", name);
    } else if (hideValues) {
        infoMsg("%*s%s=XXXXX\n", in, "", name ? name : "tag");
    } else if (!name) {
        infoMsg("%*s%s[%d]=%s\n", in, "", "tag", info.tag, renderData(info).c_str());
    } else if (info.tag == MarkDrive) {
        unsigned char bytes[5] = {0, 0, 0, 0, 0};
        memcpy(bytes, info.data.get(), std::min<unsigned int>(info.length, 5));
        infoMsg("%*s%s=%s (0x%02x %02x %02x %02x %02x)\n", in, "", name, renderData(info).c_str(), bytes[0],
                bytes[1], bytes[2], bytes[3], bytes[4]);
    } else {
        infoMsg("%*s%s=%s\n", in, "", name, renderData(info).c_str());
    }
}
