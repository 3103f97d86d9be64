// Building blocks of the test plug-ins: packets, bundles and settings the
// plug-ins hand out as their own implementations of the public interfaces.
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

class TPacket : public IPacket {
public:
    TPacket(uint32_t type, std::string data, uint64_t time = 0, uint64_t timeBase = 1, std::string descriptor = {})
        : m_type(type), m_time(time), m_timeBase(timeBase), m_descriptor(std::move(descriptor)), m_data(std::move(data))
    {
    }
    uint32_t getType() const override { return m_type; }
    uint32_t getTrack() const override { return 0; }
    uint64_t getTime() const override { return m_time; }
    uint64_t getTimeBase() const override { return m_timeBase; }
    uint64_t getDuration() const override { return 1; }
    const uint8_t* getDescriptor() const override { return m_descriptor.empty() ? nullptr : Bytes(m_descriptor); }
    uint64_t getDescriptorSize() const override { return m_descriptor.size(); }
    const uint8_t* getData() const override { return m_data.empty() ? nullptr : Bytes(m_data); }
    uint64_t getDataSize() const override { return m_data.size(); }
    IPacket* clone() const override { return new TPacket(*this); }
    void destroy() override { delete this; }

private:
    static const uint8_t* Bytes(const std::string& s) { return reinterpret_cast<const uint8_t*>(s.data()); }
    uint32_t m_type;
    uint64_t m_time;
    uint64_t m_timeBase;
    std::string m_descriptor;
    std::string m_data;
};

class TBundle : public IPacketBundle {
public:
    TBundle() = default;
    TBundle(const TBundle&) = delete;
    TBundle& operator=(const TBundle&) = delete;
    ~TBundle() override { clear(); }

    uint32_t getTrack() const override { return 0; }
    uint64_t getTime() const override { return 0; }
    uint64_t getTimeBase() const override { return 1; }
    uint64_t getDuration() const override { return 0; }
    const uint8_t* getDescriptor() const override { return nullptr; }
    uint64_t getDescriptorSize() const override { return 0; }
    IPacket* clone() const override
    {
        auto* copy = new TBundle;
        for (IPacket* member : m_members)
            copy->append(member->clone());
        return copy;
    }
    void destroy() override { delete this; }
    void clear() override
    {
        for (IPacket* member : m_members)
            member->destroy();
        m_members.clear();
    }
    uint32_t size() const override { return static_cast<uint32_t>(m_members.size()); }
    IPacket* get(uint32_t index) const override { return index < m_members.size() ? m_members[index] : nullptr; }
    IPacket* remove(uint32_t index) override
    {
        if (index >= m_members.size())
            return nullptr;
        IPacket* member = m_members[index];
        m_members.erase(m_members.begin() + index);
        return member;
    }
    void append(IPacket* packet) override
    {
        if (packet != nullptr)
            m_members.push_back(packet);
    }
    IPacket* replace(uint32_t index, IPacket* packet) override
    {
        if (index >= m_members.size() || packet == nullptr)
            return nullptr;
        IPacket* old = m_members[index];
        m_members[index] = packet;
        return old;
    }

private:
    std::vector<IPacket*> m_members;
};

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
