// Building blocks of the test plug-ins: offers, packets (the public helpers)
// and settings the plug-ins hand out as implementations of the public interfaces.
// Compiled into each plug-in; nothing here comes from the host.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "evc/ISetting.h"
#include "evc/IPacket.h"
#include "evc/PluginPackets.h"

namespace kit {

// One compressor a bundle offers, as QVGetVideoCompressorInfo reports it.
struct TOffer {
    uint32_t manufacturer;
    uint32_t codec;
    uint64_t info;
};

// Writes the offer at index; false (and nothing written) when index is out of
// range or an output is missing.
template <size_t N>
bool WriteOffer(const TOffer (&offers)[N], uint64_t index, uint32_t* manufacturer, uint32_t* codec, uint64_t* info)
{
    if (index >= N || manufacturer == nullptr || codec == nullptr || info == nullptr)
        return false;
    *manufacturer = offers[index].manufacturer;
    *codec = offers[index].codec;
    *info = offers[index].info;
    return true;
}

// Whether a non-empty offer has exactly this pair.
template <size_t N>
bool IsOffered(const TOffer (&offers)[N], uint32_t manufacturer, uint32_t codec)
{
    for (const TOffer& offer : offers) {
        if ((offer.manufacturer | offer.codec | offer.info) != 0 && offer.manufacturer == manufacturer &&
            offer.codec == codec)
            return true;
    }
    return false;
}

using TBundle = evc::plugin::TBundle;

// A packet of text bytes lasting one unit, with an optional descriptor.
inline IPacket* MakePacket(uint32_t type, const std::string& data, uint64_t time = 0, uint64_t timeBase = 1,
                           const std::string& descriptor = {})
{
    auto* packet =
        new evc::plugin::TPacket(type, reinterpret_cast<const uint8_t*>(data.data()), data.size(), time, timeBase, 1);
    packet->SetDescriptor(reinterpret_cast<const uint8_t*>(descriptor.data()), descriptor.size());
    return packet;
}

// Each setting remembers its value as text and how often it was set, which
// is what the echo compressor reports.
template <class Interface>
class TSettingBase : public Interface {
public:
    TSettingBase(const char* name, std::string initial) : m_name(name), m_text(std::move(initial)) {}
    const char* GetName() const override { return m_name.c_str(); }
    const std::string& Text() const { return m_text; }
    int SetCount() const { return m_sets; }

protected:
    void Store(std::string text)
    {
        m_text = std::move(text);
        ++m_sets;
    }

private:
    std::string m_name;
    std::string m_text;
    int m_sets = 0;
};

// The report of one setting: "value sets=N".
struct ISettingReport {
    virtual ~ISettingReport() = default;
    virtual std::string Report() const = 0;
};

template <class Interface>
class TReportingSetting : public TSettingBase<Interface>, public ISettingReport {
public:
    using TSettingBase<Interface>::TSettingBase;
    std::string Report() const override { return this->Text() + " sets=" + std::to_string(this->SetCount()); }
};

class TBoolSetting : public TReportingSetting<IBoolSetting> {
public:
    TBoolSetting(const char* name, bool initial) : TReportingSetting(name, initial ? "true" : "false") {}
    void SetValue(bool value) override { Store(value ? "true" : "false"); }
};

class TEnumSetting : public TReportingSetting<IEnumSetting> {
public:
    TEnumSetting(const char* name, const char* initial) : TReportingSetting(name, initial) {}
    void SetValue(const char* value) override { Store(value != nullptr ? value : "(null)"); }
};

class TIntSetting : public TReportingSetting<IIntSetting> {
public:
    TIntSetting(const char* name, int32_t initial) : TReportingSetting(name, std::to_string(initial)), m_value(initial)
    {
    }
    void SetValue(int32_t value) override
    {
        m_value = value;
        Store(std::to_string(value));
    }
    int32_t Value() const { return m_value; }

private:
    int32_t m_value;
};

class TDoubleSetting : public TReportingSetting<IDoubleSetting> {
public:
    TDoubleSetting(const char* name, double initial) : TReportingSetting(name, Format(initial)) {}
    void SetValue(double value) override { Store(Format(value)); }

private:
    static std::string Format(double value)
    {
        char text[32];
        std::snprintf(text, sizeof text, "%.17g", value);
        return text;
    }
};

// Owns its settings; each is kept as its ISetting face and its report face.
class TSettingArray : public ISettingArray {
public:
    TSettingArray() = default;
    TSettingArray(const TSettingArray&) = delete;
    TSettingArray& operator=(const TSettingArray&) = delete;
    ~TSettingArray() override
    {
        for (const Entry& entry : m_entries)
            delete entry.report;
    }

    template <class Setting>
    Setting* Add(Setting* setting)
    {
        m_entries.push_back({setting, setting});
        return setting;
    }

    int32_t GetCount() const override { return static_cast<int32_t>(m_entries.size()); }
    ISetting* GetSetting(int32_t index) const override
    {
        return index >= 0 && index < GetCount() ? m_entries[static_cast<size_t>(index)].setting : nullptr;
    }
    // "setting.Name=value sets=N\n" for every setting, in order.
    std::string Report() const
    {
        std::string text;
        for (const Entry& entry : m_entries)
            text += "setting." + std::string(entry.setting->GetName()) + "=" + entry.report->Report() + "\n";
        return text;
    }

private:
    struct Entry {
        ISetting* setting;
        ISettingReport* report;
    };
    std::vector<Entry> m_entries;
};

}  // namespace kit
