/// @file
/// A settings table for plug-in authors: one row per setting (name, kind,
/// default, range or enumerators) builds an ISettingArray the host can fill
/// from a preset. A setting only stores what it is given; Check() tells, with a
/// message, which value lies outside its row, so a compressor refuses a bad
/// preset when a stream begins instead of dropping a value quietly.
/// Header-only, so a plug-in links nothing of ours.
#pragma once

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "evc/ISetting.h"
#include "evc/VideoCompressorPlugin.h"

namespace evc {
namespace plugin {

/// A row's kind, and the preset kind it takes: "eBool", "eInt", "eDouble",
/// "eEnum".
enum class ESettingKind { Bool, Int, Double, Enum };

/// One row of a table. Build rows with the helpers below.
struct TSettingRow {
    const char* name;                      ///< the element name a preset gives it; must outlive the table
    ESettingKind kind;                     ///< which interface the setting implements
    double initial;                        ///< the starting value of a Bool (0 or 1), Int or Double row
    double minimum;                        ///< Int, Double: the value must lie in [minimum, maximum]
    double maximum;                        ///< see minimum
    std::vector<std::string> enumerators;  ///< the texts an Enum row accepts
    std::string initialText;               ///< the starting text of an Enum row
};

/// A yes/no setting (kind "eBool") whose value starts as initial.
inline TSettingRow BoolRow(const char* name, bool initial)
{
    return {name, ESettingKind::Bool, initial ? 1.0 : 0.0, 0, 1, {}, {}};
}
/// A whole-number setting (kind "eInt") starting at initial; Check() wants it
/// within [minimum, maximum].
inline TSettingRow IntRow(const char* name, int32_t initial, int32_t minimum = std::numeric_limits<int32_t>::min(),
                          int32_t maximum = std::numeric_limits<int32_t>::max())
{
    return {name, ESettingKind::Int, double(initial), double(minimum), double(maximum), {}, {}};
}
/// A real-number setting (kind "eDouble") starting at initial; Check() wants
/// it within [minimum, maximum] (NaN never is).
inline TSettingRow DoubleRow(const char* name, double initial, double minimum, double maximum)
{
    return {name, ESettingKind::Double, initial, minimum, maximum, {}, {}};
}
/// A text setting (kind "eEnum") starting at initial; Check() wants one of
/// enumerators, compared exactly.
inline TSettingRow EnumRow(const char* name, std::vector<std::string> enumerators, const char* initial)
{
    return {name, ESettingKind::Enum, 0, 0, 0, std::move(enumerators), initial};
}

/// The texts of a null-terminated list, as libraries publish their preset
/// names, after an optional first one: enumerators for EnumRow.
inline std::vector<std::string> NameList(const char* const* names, const char* first = nullptr)
{
    std::vector<std::string> result;
    if (first != nullptr)
        result.emplace_back(first);
    for (; names != nullptr && *names != nullptr; ++names)
        result.emplace_back(*names);
    return result;
}

namespace detail {

template <class Interface>
class TRowSetting : public Interface {
public:
    explicit TRowSetting(const TSettingRow& row) : m_row(row) {}
    const char* GetName() const override { return m_row.name; }
    const TSettingRow& Row() const { return m_row; }

private:
    TSettingRow m_row;
};

/// A preset that gives a bool or enum setting a number kind reaches the
/// operation at position 22 (the numbers' SetValue), which these two classes
/// fill, with position 21, by operations that ignore their argument.
class TBool : public TRowSetting<IBoolSetting> {
public:
    explicit TBool(const TSettingRow& row) : TRowSetting(row), value(row.initial != 0) {}
    void SetValue(bool v) override { value = v; }
    virtual void Ignored21() {}
    virtual void IgnoredNumber() {}
    bool value;
};

class TInt : public TRowSetting<IIntSetting> {
public:
    explicit TInt(const TSettingRow& row) : TRowSetting(row), value(int32_t(row.initial)) {}
    void SetValue(int32_t v) override { value = v; }
    int32_t value;
};

class TDouble : public TRowSetting<IDoubleSetting> {
public:
    explicit TDouble(const TSettingRow& row) : TRowSetting(row), value(row.initial) {}
    void SetValue(double v) override { value = v; }
    double value;
};

class TEnum : public TRowSetting<IEnumSetting> {
public:
    explicit TEnum(const TSettingRow& row) : TRowSetting(row), value(row.initialText) {}
    /// Given the kind "eBool", SetValue receives a bool where the text should
    /// be: no text lives in the first page of memory, so such a value is ignored.
    void SetValue(const char* v) override
    {
        if (v == nullptr)
            value.clear();
        else if (reinterpret_cast<uintptr_t>(v) >= kFirstTextAddress)
            value = v;
    }
    virtual void Ignored21() {}
    virtual void IgnoredNumber() {}
    std::string value;

private:
    static constexpr uintptr_t kFirstTextAddress = 4096;
};

inline std::string Number(double value)
{
    std::string text = std::to_string(value);
    // Trim the zeros of a whole or short number for messages.
    if (text.find('.') != std::string::npos) {
        text.erase(text.find_last_not_of('0') + 1);
        if (text.back() == '.')
            text.pop_back();
    }
    return text;
}

}  // namespace detail

/// The settings of one array, in row order. Lookups by name throw
/// std::logic_error for a name or kind the table does not hold: that is a
/// fault of the plug-in, not of the preset.
class TSettingTable : public ISettingArray {
public:
    /// One setting per row, in order, each holding its row's initial value.
    explicit TSettingTable(std::vector<TSettingRow> rows)
    {
        for (const TSettingRow& row : rows) {
            switch (row.kind) {
            case ESettingKind::Bool:
                m_settings.emplace_back(new detail::TBool(row));
                break;
            case ESettingKind::Int:
                m_settings.emplace_back(new detail::TInt(row));
                break;
            case ESettingKind::Double:
                m_settings.emplace_back(new detail::TDouble(row));
                break;
            case ESettingKind::Enum:
                m_settings.emplace_back(new detail::TEnum(row));
                break;
            }
            m_rows.push_back(row);
            m_texts.push_back(DescriptionTexts(row));
        }
    }
    TSettingTable(const TSettingTable&) = delete;
    TSettingTable& operator=(const TSettingTable&) = delete;

    int32_t GetCount() const override { return static_cast<int32_t>(m_settings.size()); }
    ISetting* GetSetting(int32_t index) const override
    {
        return index >= 0 && index < GetCount() ? m_settings[size_t(index)].get() : nullptr;
    }

    /// Whether a row is called name.
    bool Has(const char* name) const { return Index(name) >= 0; }
    /// The current value of the Bool row name.
    bool Bool(const char* name) const { return Get<detail::TBool>(name, ESettingKind::Bool).value; }
    /// The current value of the Int row name.
    int32_t Int(const char* name) const { return Get<detail::TInt>(name, ESettingKind::Int).value; }
    /// The current value of the Double row name.
    double Double(const char* name) const { return Get<detail::TDouble>(name, ESettingKind::Double).value; }
    /// The current text of the Enum row name, valid until it is set again.
    const std::string& Enum(const char* name) const { return Get<detail::TEnum>(name, ESettingKind::Enum).value; }

    /// Each row as the optional entry point EVCGetVideoCompressorSettings
    /// describes it; the texts live as long as the table.
    void Describe(bool standard, std::vector<EVCSettingInfo>& infos) const
    {
        for (size_t i = 0; i < m_rows.size(); ++i) {
            const std::vector<std::string>& text = m_texts[i];
            infos.push_back({m_rows[i].name, text[0].c_str(), standard ? 1 : 0, text[1].c_str(), text[2].c_str()});
        }
    }

    /// True when every value lies in its row's range or enumerators; otherwise
    /// false with a sentence naming the first one that does not.
    bool Check(std::string& problem) const
    {
        for (size_t i = 0; i < m_rows.size(); ++i)
            if (!CheckRow(i, problem))
                return false;
        return true;
    }

private:
    bool CheckRow(size_t i, std::string& problem) const
    {
        const TSettingRow& row = m_rows[i];
        double value = 0;
        switch (row.kind) {
        case ESettingKind::Bool:
            return true;
        case ESettingKind::Int:
            value = static_cast<const detail::TInt&>(*m_settings[i]).value;
            break;
        case ESettingKind::Double:
            value = static_cast<const detail::TDouble&>(*m_settings[i]).value;
            break;
        case ESettingKind::Enum: {
            const std::string& text = static_cast<const detail::TEnum&>(*m_settings[i]).value;
            std::string list;
            for (const std::string& enumerator : row.enumerators) {
                if (enumerator == text)
                    return true;
                list += (list.empty() ? "" : ", ") + enumerator;
            }
            problem = std::string(row.name) + " \"" + text + "\" is not one of: " + list;
            return false;
        }
        }
        if (value >= row.minimum && value <= row.maximum)  // NaN fails both
            return true;
        problem = std::string(row.name) + " must lie between " + detail::Number(row.minimum) + " and " +
                  detail::Number(row.maximum) + ", not " + detail::Number(value);
        return false;
    }

    /// Kind, default and range of a row, as a preset writes them.
    static std::vector<std::string> DescriptionTexts(const TSettingRow& row)
    {
        switch (row.kind) {
        case ESettingKind::Bool:
            return {"eBool", row.initial != 0 ? "True" : "False", ""};
        case ESettingKind::Int:
            return {"eInt", detail::Number(row.initial),
                    detail::Number(row.minimum) + ".." + detail::Number(row.maximum)};
        case ESettingKind::Double:
            return {"eDouble", detail::Number(row.initial),
                    detail::Number(row.minimum) + ".." + detail::Number(row.maximum)};
        case ESettingKind::Enum: {
            std::string range;
            for (const std::string& enumerator : row.enumerators)
                range += (range.empty() ? "" : "|") + enumerator;
            return {"eEnum", row.initialText, range};
        }
        }
        return {"", "", ""};
    }

    int Index(const char* name) const
    {
        for (size_t i = 0; i < m_rows.size(); ++i)
            if (std::strcmp(m_rows[i].name, name) == 0)
                return static_cast<int>(i);
        return -1;
    }
    template <class Setting>
    const Setting& Get(const char* name, ESettingKind kind) const
    {
        const int i = Index(name);
        if (i < 0 || m_rows[size_t(i)].kind != kind)
            throw std::logic_error(std::string("no setting ") + name + " of that kind");
        return static_cast<const Setting&>(*m_settings[size_t(i)]);
    }

    std::vector<TSettingRow> m_rows;
    std::vector<std::vector<std::string>> m_texts;
    std::vector<std::unique_ptr<ISetting>> m_settings;
};

}  // namespace plugin
}  // namespace evc
