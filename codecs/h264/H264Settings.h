// The settings through which the host configures the H.264 compressor. A
// setting only stores what it is given; the compressor checks the values when
// a stream begins, so a bad preset value fails Begin with a clear message
// instead of being dropped quietly.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "evc/ISetting.h"

namespace h264 {

template <class Interface>
class TNamedSetting : public Interface {
public:
    explicit TNamedSetting(const char* name) : m_name(name) {}
    const char* GetName() const override { return m_name.c_str(); }

private:
    std::string m_name;
};

// A number setting: IIntSetting with int32_t, IDoubleSetting with double.
template <class Interface, class Value>
class TNumberSetting : public TNamedSetting<Interface> {
public:
    TNumberSetting(const char* name, Value initial) : TNamedSetting<Interface>(name), m_value(initial) {}
    void SetValue(Value value) override { m_value = value; }
    Value Get() const { return m_value; }

private:
    Value m_value;
};

using TIntSetting = TNumberSetting<IIntSetting, int32_t>;
using TDoubleSetting = TNumberSetting<IDoubleSetting, double>;

// An enumeration whose enumerators are texts; any text is stored, and
// IsKnown tells whether it is one of the enumerators.
class TEnumSetting : public TNamedSetting<IEnumSetting> {
public:
    TEnumSetting(const char* name, std::vector<std::string> enumerators, const char* initial);
    void SetValue(const char* value) override { m_value = value != nullptr ? value : ""; }
    const std::string& Value() const { return m_value; }
    bool IsKnown() const;
    // The enumerators separated by ", ", for messages.
    std::string Enumerators() const;

private:
    std::vector<std::string> m_enumerators;
    std::string m_value;
};

// Owns its settings and lends them in the order they were added.
class TSettingArray : public ISettingArray {
public:
    TSettingArray() = default;
    TSettingArray(const TSettingArray&) = delete;
    TSettingArray& operator=(const TSettingArray&) = delete;

    template <class Setting>
    Setting* Add(std::unique_ptr<Setting> setting)
    {
        Setting* raw = setting.get();
        m_settings.push_back(std::move(setting));
        return raw;
    }

    int32_t GetCount() const override { return static_cast<int32_t>(m_settings.size()); }
    ISetting* GetSetting(int32_t index) const override;

private:
    std::vector<std::unique_ptr<ISetting>> m_settings;
};

}  // namespace h264
