#include "media/CATime.h"

#include <cassert>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "media/ZKUtils.h"

namespace {

constexpr uint64_t kTextTimeScale = 10000000;  // 100 ns units

}  // namespace

CATime::CATime()
{
    Init(0, 1);
}

CATime::CATime(uint64_t time, uint64_t timeScale)
{
    Init(time, timeScale);
}

CATime::CATime(const CATime& other)
{
    Init(other.m_time, other.m_timeScale);
}

void CATime::Init(uint64_t time, uint64_t timeScale)
{
    m_time = time;
    m_timeScale = timeScale;
}

uint64_t CATime::GetTime(uint64_t timeScale) const
{
    return ZKUtils::rebaseTime(m_time, m_timeScale, timeScale);
}

CATime CATime::ChangeTimeScale(uint64_t timeScale) const
{
    return CATime(GetTime(timeScale), timeScale);
}

double CATime::GetSeconds() const
{
    assert(m_timeScale != 0);
    return static_cast<double>(m_time) / static_cast<double>(m_timeScale);
}

bool CATime::operator==(const CATime& other) const
{
    if (m_time == other.m_time && m_timeScale == other.m_timeScale)
        return true;
    if (m_timeScale == 0 || other.m_timeScale == 0)
        return false;

    // Cross-multiplied in signed 64 bits: exact whenever neither product overflows.
    int64_t p = 0;
    int64_t q = 0;
    const bool pOverflow =
        __builtin_mul_overflow(static_cast<int64_t>(m_time), static_cast<int64_t>(other.m_timeScale), &p);
    const bool qOverflow =
        __builtin_mul_overflow(static_cast<int64_t>(other.m_time), static_cast<int64_t>(m_timeScale), &q);
    if (!pOverflow && !qOverflow)
        return p == q;

    // Too large for exact arithmetic: equal within one unit of the coarser scale.
    double tolerance = std::fmax(1.0 / static_cast<double>(m_timeScale), 1.0 / static_cast<double>(other.m_timeScale));
    tolerance = std::fmax(tolerance, DBL_EPSILON);
    return std::fabs(GetSeconds() - other.GetSeconds()) < tolerance;
}

bool CATime::operator<(const CATime& other) const
{
    if (m_timeScale == other.m_timeScale)
        return m_time < other.m_time;
    return GetSeconds() < other.GetSeconds();
}

bool CATime::operator<=(const CATime& other) const
{
    if (m_timeScale == other.m_timeScale)
        return m_time <= other.m_time;
    return GetSeconds() <= other.GetSeconds();
}

bool CATime::CloseEnough(const CATime& other, double toleranceSeconds) const
{
    return ZKCloseEnough(GetSeconds(), other.GetSeconds(), toleranceSeconds);
}

void CATime::Add(double seconds)
{
    assert(m_timeScale != 0);
    // The rounding term is 1 / (2 * scale) units, not half a unit: it only
    // absorbs floating-point error in amounts that sit just below a whole unit.
    const double half = 1.0 / static_cast<double>(2 * m_timeScale);
    const uint64_t units = ZKUtils::truncateToUInt64(std::fabs(seconds) * static_cast<double>(m_timeScale) + half);
    if (seconds >= 0.0)
        m_time += units;
    else if (units <= m_time)
        m_time -= units;
    else
        m_time = 0;
}

void CATime::Add(const CATime& other)
{
    m_time += other.GetTime(m_timeScale);
}

void CATime::SetTime(const char* seconds)
{
    const double value = seconds != nullptr ? std::atof(seconds) : 0.0;
    Init(ZKUtils::truncateToUInt64(value * static_cast<double>(kTextTimeScale)), kTextTimeScale);
}

void CATime::ToString(std::string& text) const
{
    assert(m_timeScale != 0);
    const uint64_t scale = m_timeScale != 0 ? m_timeScale : 1;
    const uint64_t wholeSeconds = m_time / scale;
    const uint64_t remainder = m_time % scale;
    // 128 bits so that fine time scales cannot overflow the product.
    const uint64_t micros = static_cast<uint64_t>(static_cast<unsigned __int128>(remainder) * 1000000u / scale);

    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%02d%02d%02d.%06d", static_cast<int32_t>(wholeSeconds / 3600),
                  static_cast<int32_t>((wholeSeconds / 60) % 60), static_cast<int32_t>(wholeSeconds % 60),
                  static_cast<int32_t>(micros));
    text = buffer;
}
