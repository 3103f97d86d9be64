// Decoding times for compressed pictures that arrive in decoding order with
// presentation times only. With a reordering depth of k pictures (at most k
// pictures that come earlier in decoding order are shown later), the
// decoding time of picture i is the (i - k)-th smallest presentation time;
// the first k get times just below the smallest one. These are strictly
// increasing and never later than the picture's presentation time. The depth
// is measured over the first window of pictures before any is released, and is
// at least the minimum given: an encoder may reorder deeper later than in its
// first pictures (x264 uses a B-pyramid only where the pictures suit one, a
// restarted encoder decides afresh), and a depth found too small then could
// only end the output. Too deep costs nothing but a lower first time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <set>
#include <stdexcept>

namespace evc {
namespace tools {

template <typename Item>
class DecodeTimes {
public:
    explicit DecodeTimes(size_t window = 32, size_t minimumDepth = 0) : m_window(window), m_depth(minimumDepth) {}

    // Takes a picture with its presentation time and step (its duration, or
    // any positive spacing used below the first time).
    void push(Item item, int64_t pts, int64_t step)
    {
        if (m_times.count(pts) != 0)
            throw std::runtime_error("the compressor returned two pictures for the same time");
        m_pending.push_back({std::move(item), pts});
        m_times.insert(pts);
        if (m_step <= 0)
            m_step = step > 0 ? step : 1;
    }

    // Hands out the pictures whose decoding time is known, in order:
    // emit(item, pts, dts). flush: the stream has ended, hand out all.
    template <typename Emit>
    void release(bool flush, Emit&& emit)
    {
        if (!m_depthKnown) {
            if (m_pending.size() < m_window && !flush)
                return;
            MeasureDepth();
        }
        while (!m_pending.empty() && (flush || m_pending.size() >= m_window)) {
            Entry entry = std::move(m_pending.front());
            m_pending.pop_front();
            int64_t dts;
            if (m_released < m_depth) {
                dts = *m_times.begin() - int64_t(m_depth - m_released) * m_step;
            } else {
                dts = *m_times.begin();
                m_times.erase(m_times.begin());
            }
            if (dts > entry.pts)
                throw std::runtime_error("the compressor reorders pictures deeper than its first pictures showed");
            ++m_released;
            emit(std::move(entry.item), entry.pts, dts);
        }
    }

    size_t depth() const { return m_depth; }

private:
    struct Entry {
        Item item;
        int64_t pts;
    };

    void MeasureDepth()
    {
        for (size_t i = 0; i < m_pending.size(); ++i) {
            size_t later = 0;
            for (size_t j = 0; j < i; ++j)
                later += m_pending[j].pts > m_pending[i].pts ? 1 : 0;
            m_depth = later > m_depth ? later : m_depth;
        }
        m_depthKnown = true;
    }

    size_t m_window;
    std::deque<Entry> m_pending;
    std::set<int64_t> m_times;  // presentation times not yet used as a decoding time
    bool m_depthKnown = false;
    size_t m_depth = 0;
    size_t m_released = 0;
    int64_t m_step = 0;
};

}  // namespace tools
}  // namespace evc
