/// @file
/// The setting interfaces through which a compressor exposes its parameters.
/// Plug-ins are compiled apart from the host, which calls these operations by
/// their position in the operation table (counting from 0, the two destructor
/// entries first). The ReservedNN operations hold positions the host never
/// calls; they keep every named operation in its place. Never reorder, insert
/// or remove an operation.
#pragma once

#include <cstdint>

/// One named parameter. Its kind decides which of the interfaces below the
/// object really implements. A setting cannot be asked its kind: the host calls
/// SetValue at the position of the kind a preset names, so a preset that names
/// the wrong kind would reach an operation the object lacks. Describe the
/// settings through EVCGetVideoCompressorSettings (VideoCompressorPlugin.h) so
/// such presets are refused before they reach the setting; a setting that
/// fills the other kinds' SetValue positions with operations that ignore their
/// argument stays safe even without that.
class ISetting {
public:
    virtual ~ISetting() = default;  ///< positions 0 and 1
    virtual void Reserved02() {}
    virtual void Reserved03() {}
    virtual void Reserved04() {}
    virtual void Reserved05() {}
    /// Position 6: the name, NUL-terminated and owned by the setting.
    virtual const char* GetName() const = 0;
    virtual void Reserved07() {}
    virtual void Reserved08() {}
    virtual void Reserved09() {}
    virtual void Reserved10() {}
    virtual void Reserved11() {}
    virtual void Reserved12() {}
    virtual void Reserved13() {}
    virtual void Reserved14() {}
    virtual void Reserved15() {}
    virtual void Reserved16() {}
    virtual void Reserved17() {}
    virtual void Reserved18() {}
    virtual void Reserved19() {}
};

/// Kind "eBool".
class IBoolSetting : public ISetting {
public:
    /// Position 20: the preset's Value, true when it reads "True". Called
    /// while the service applies a preset, before Begin.
    virtual void SetValue(bool value) = 0;
};

/// Kind "eEnum": the value is the enumerator's text.
class IEnumSetting : public ISetting {
public:
    /// Position 20: the preset's Value text, NUL-terminated and valid during
    /// the call only (copy it). Called while the service applies a preset,
    /// before Begin.
    virtual void SetValue(const char* value) = 0;
};

/// Kinds "eInt" and "eUnsignedInt"; an unsigned setting receives the same
/// 32-bit pattern.
class IIntSetting : public ISetting {
public:
    virtual void Reserved20() {}
    virtual void Reserved21() {}
    /// Position 22: the preset's Value as a 32-bit integer (a Value that is
    /// not one leaves the setting untouched). Called while the service
    /// applies a preset, before Begin.
    virtual void SetValue(int32_t value) = 0;
};

/// Kind "eDouble".
class IDoubleSetting : public ISetting {
public:
    virtual void Reserved20() {}
    virtual void Reserved21() {}
    /// Position 22: the preset's Value as a number (a Value that is not one
    /// leaves the setting untouched). Called while the service applies a
    /// preset, before Begin.
    virtual void SetValue(double value) = 0;
};

/// An ordered list of settings; the array keeps the settings it lends.
class ISettingArray {
public:
    virtual ~ISettingArray() = default;  ///< positions 0 and 1
    virtual void Reserved02() {}
    virtual void Reserved03() {}
    virtual void Reserved04() {}
    virtual void Reserved05() {}
    virtual void Reserved06() {}
    virtual void Reserved07() {}
    virtual void Reserved08() {}
    virtual void Reserved09() {}
    virtual void Reserved10() {}
    virtual void Reserved11() {}
    virtual void Reserved12() {}
    virtual void Reserved13() {}
    virtual void Reserved14() {}
    virtual void Reserved15() {}
    virtual void Reserved16() {}
    virtual void Reserved17() {}
    virtual void Reserved18() {}
    virtual int32_t GetCount() const = 0;  ///< position 19: the number of settings
    /// Position 20: the setting at index (from 0), lent for the array's
    /// lifetime; null when out of range.
    virtual ISetting* GetSetting(int32_t index) const = 0;
};
