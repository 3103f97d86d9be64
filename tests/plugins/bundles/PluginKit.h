// Building blocks of the test plug-ins: the offers a bundle makes, a compressor that does nothing,
// and settings that report their value and how often they were set. Compiled into each plug-in
// (and the preset fuzzer) from the public headers only.
#pragma once

#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "evc/ISetting.h"
#include "evc/IVideoCompressor.h"
#include "evc/PluginPackets.h"

namespace kit {

using evc::plugin::TPacket;

// One compressor a bundle offers, as QVGetVideoCompressorInfo reports it.
struct TOffer {
    uint32_t manufacturer, codec;
    uint64_t info;
};

// Writes the offer at index; nothing when index is out of range or an output is missing.
template <size_t N>
void WriteOffer(const TOffer (&offers)[N], uint64_t index, uint32_t* manufacturer, uint32_t* codec, uint64_t* info)
{
    if (index >= N || manufacturer == nullptr || codec == nullptr || info == nullptr)
        return;
    *manufacturer = offers[index].manufacturer;
    *codec = offers[index].codec;
    *info = offers[index].info;
}

// Whether a non-empty offer has exactly this pair.
template <size_t N>
bool IsOffered(const TOffer (&offers)[N], uint32_t manufacturer, uint32_t codec)
{
    for (const TOffer& offer : offers)
        if ((offer.manufacturer | offer.codec | offer.info) != 0 && offer.manufacturer == manufacturer &&
            offer.codec == codec)
            return true;
    return false;
}

// A compressor that accepts every call and compresses nothing: no pictures out, no settings.
// Self, the derived class, is what CreateInstance makes; it overrides only what it needs.
template <class Self>
class TIdleCompressor : public IVideoCompressor {
public:
    void SetFileFormatHint(uint32_t) override {}
    void SetStreamModeHint(uint32_t) override {}
    void SetInputColorFormat(uint32_t) override {}
    uint32_t Begin(const ZKEncImage_t*, bool) override { return 0; }
    uint32_t CompressFrame(const ZKEncImage_t*, bool, bool, ZKEncImage_t*) override { return 0; }
    void End() override {}
    bool IsLastPassEncodingReady() override { return true; }
    IVideoCompressor* CreateInstance() override { return new Self; }
    ISettingArray* GetStandardSettings() override { return nullptr; }
    ISettingArray* GetNonStandardSettings() override { return nullptr; }
};

// A setting that keeps its value as text and counts how often it was set.
template <class Interface, class T>
class TSetting : public Interface {
public:
    TSetting(const char* name, T initial) : m_name(name), m_text(Format(initial)) {}
    const char* GetName() const override { return m_name.c_str(); }
    void SetValue(T value) override
    {
        m_text = Format(value);
        ++m_sets;
    }
    const std::string& Text() const { return m_text; }
    int32_t Value() const { return std::stoi(m_text); }
    std::string Report() const { return m_text + " sets=" + std::to_string(m_sets); }

private:
    static std::string Format(bool value) { return value ? "true" : "false"; }
    static std::string Format(int32_t value) { return std::to_string(value); }
    static std::string Format(const char* value) { return value != nullptr ? value : "(null)"; }
    static std::string Format(double value)
    {
        char text[32];
        std::snprintf(text, sizeof text, "%.17g", value);
        return text;
    }
    std::string m_name, m_text;
    int m_sets = 0;
};
using TBool = TSetting<IBoolSetting, bool>;
using TInt = TSetting<IIntSetting, int32_t>;
using TDouble = TSetting<IDoubleSetting, double>;
using TEnum = TSetting<IEnumSetting, const char*>;

// Owns its settings and reports them all: "setting.Name=value sets=N" lines.
class TSettingArray : public ISettingArray {
public:
    template <class Setting, class Value>
    Setting* Add(const char* name, Value initial)
    {
        auto* setting = new Setting(name, initial);
        m_settings.emplace_back(setting);
        m_reports.push_back([setting] { return setting->Report(); });
        return setting;
    }
    int32_t GetCount() const override { return static_cast<int32_t>(m_settings.size()); }
    ISetting* GetSetting(int32_t index) const override
    {
        return index >= 0 && index < GetCount() ? m_settings[size_t(index)].get() : nullptr;
    }
    std::string Report() const
    {
        std::string text;
        for (size_t i = 0; i < m_settings.size(); ++i)
            text += "setting." + std::string(m_settings[i]->GetName()) + "=" + m_reports[i]() + "\n";
        return text;
    }

private:
    std::vector<std::unique_ptr<ISetting>> m_settings;
    std::vector<std::function<std::string()>> m_reports;
};

}  // namespace kit
