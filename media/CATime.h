// A point in time or a duration: a count of units and the number of units per
// second. Conversions between time scales round to the nearest unit; equality
// across time scales is exact while the cross products fit in 64 bits and
// tolerates one unit of the coarser scale beyond that.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

class CATime {
public:
    CATime();
    CATime(uint64_t time, uint64_t timeScale);
    CATime(const CATime& other);
    CATime& operator=(const CATime& other) = default;

    void Init(uint64_t time, uint64_t timeScale);

    uint64_t GetTime() const { return m_time; }
    void SetTime(uint64_t time) { m_time = time; }
    // Lets SetTime(0) and other integer literals pick the count, not the text.
    template <typename Int, typename = std::enable_if_t<std::is_integral<Int>::value>>
    void SetTime(Int time)
    {
        SetTime(static_cast<uint64_t>(time));
    }
    uint64_t GetTimeScale() const { return m_timeScale; }
    // Does not convert the count.
    void SetTimeScale(uint64_t timeScale) { m_timeScale = timeScale; }

    // The count in another time scale, rounded (halves up).
    uint64_t GetTime(uint64_t timeScale) const;
    CATime ChangeTimeScale(uint64_t timeScale) const;
    double GetSeconds() const;

    bool operator==(const CATime& other) const;
    bool operator!=(const CATime& other) const { return !(*this == other); }
    // Ordering compares counts within one time scale and seconds otherwise; it
    // has no tolerance, so two times can be == and < at once.
    bool operator<(const CATime& other) const;
    bool operator<=(const CATime& other) const;
    bool operator>(const CATime& other) const { return other < *this; }
    bool operator>=(const CATime& other) const { return other <= *this; }

    // |seconds of this - seconds of other| <= toleranceSeconds.
    bool CloseEnough(const CATime& other, double toleranceSeconds) const;

    // Moves the time by a number of seconds; it never goes below 0.
    void Add(double seconds);
    // Adds other, converted to this time's scale.
    void Add(const CATime& other);

    // Decimal seconds as text; the result is in units of 100 ns (scale 10^7),
    // truncated. Text that does not start with a number gives 0.
    void SetTime(const char* seconds);
    // "HHMMSS.uuuuuu": hours not wrapped at 24, microseconds truncated.
    void ToString(std::string& text) const;

private:
    uint64_t m_time;
    uint64_t m_timeScale;
};
