// A small bounded queue between the thread that reads and decodes the input
// and the loop that feeds the service, so that the next pictures are ready
// while the service compresses the current one. A producer that found it
// full sleeps until it has drained to half, so that it wakes once for a few
// pictures rather than once for each.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>

namespace evc {
namespace tools {

template <typename Item>
class PictureQueue {
public:
    explicit PictureQueue(size_t capacity) : m_capacity(capacity) {}

    // Waits for room; false (the item is dropped) once the queue is closed.
    bool push(Item item)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_items.size() >= m_capacity)
            m_room.wait(lock, [&] { return m_closed || m_items.size() <= m_capacity / 2; });
        if (m_closed)
            return false;
        m_items.push_back(std::move(item));
        m_ready.notify_one();
        return true;
    }

    // The next item, or nothing when none came within wait.
    std::optional<Item> pop(std::chrono::milliseconds wait)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (!m_ready.wait_for(lock, wait, [&] { return !m_items.empty(); }))
            return std::nullopt;
        Item item = std::move(m_items.front());
        m_items.pop_front();
        if (m_items.size() == m_capacity / 2)
            m_room.notify_one();
        return item;
    }

    // Wakes and refuses every later push.
    void close()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_closed = true;
        m_room.notify_all();
    }

private:
    size_t m_capacity;
    std::mutex m_mutex;
    std::condition_variable m_ready;
    std::condition_variable m_room;
    std::deque<Item> m_items;
    bool m_closed = false;
};

}  // namespace tools
}  // namespace evc
