#include "quicktime/atoms/QtTreeSize.h"

#include <string>

#include "framework/FormatStr.h"

AutoPtr<char> QtResizeReq::toString() const {
    static constexpr struct {
        uint32_t bit;
        char const* name;
    } kNames[] = {{Samples, " smpl"}, {Stsc, " stsc"}, {Edts, " edts"},
                  {Track, " trk"},    {UserData, " ud"}, {ResizeNoFlush, " reszNoFlush"}};
    std::string text = FormatStr("req=0x%x{", m_value).get();
    for (auto const& entry : kNames)
        if (m_value & entry.bit) text += entry.name;
    text += "}";
    return copyText(text.c_str());
}
