#include "H264Settings.h"

#include <algorithm>

namespace h264 {

TEnumSetting::TEnumSetting(const char* name, std::vector<std::string> enumerators, const char* initial)
    : TNamedSetting(name), m_enumerators(std::move(enumerators)), m_value(initial)
{
}

bool TEnumSetting::IsKnown() const
{
    return std::find(m_enumerators.begin(), m_enumerators.end(), m_value) != m_enumerators.end();
}

std::string TEnumSetting::Enumerators() const
{
    std::string text;
    for (const std::string& enumerator : m_enumerators)
        text += (text.empty() ? "" : ", ") + enumerator;
    return text;
}

ISetting* TSettingArray::GetSetting(int32_t index) const
{
    if (index < 0 || index >= GetCount())
        return nullptr;
    return m_settings[static_cast<size_t>(index)].get();
}

}  // namespace h264
