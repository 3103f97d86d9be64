// Growable array of separately allocated items. The table of item pointers
// grows in steps of ten; items beyond a shrinking count stay allocated as
// spare items for reuse. Failures are answered with false, never thrown.
#pragma once

#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>

template <typename T>
class Array_c {
public:
    Array_c() = default;
    ~Array_c() { FreeAllItems(); }

    Array_c(const Array_c&) = delete;
    Array_c& operator=(const Array_c&) = delete;

    int GetSize() const { return m_count; }
    // Number of allocated slots, spare items included.
    int GetCapacity() const { return m_capacity; }

    // The item at index, or null when index is not below the count.
    T* operator[](unsigned long index)
    {
        return index < static_cast<unsigned long>(m_count) ? m_table[index] : nullptr;
    }
    const T* operator[](unsigned long index) const
    {
        return index < static_cast<unsigned long>(m_count) ? m_table[index] : nullptr;
    }

    bool SetSize(int newCount);
    bool Append(const T& item, int* outIndex = nullptr);
    bool Remove(int index);
    void FreeAllItems();

    // The next multiple of ten above count.
    static int CapacityFor(int count) { return ((count / 10) * 5 + 5) * 2; }

private:
    bool Grow(int target);
    bool Shrink(int target);

    int m_count = 0;
    int m_capacity = 0;
    T** m_table = nullptr;
};

template <typename T>
bool Array_c<T>::SetSize(int newCount)
{
    if (newCount < 0 || newCount > INT_MAX - 20)
        return false;
    if (newCount == m_count)
        return true;
    if (newCount > m_count) {
        if (newCount > m_capacity && !Grow(CapacityFor(newCount)))
            return false;
        m_count = newCount;
        return true;
    }
    const int target = CapacityFor(newCount);
    bool ok = true;
    if (m_capacity > 2 * newCount + 10 && m_capacity > target)
        ok = Shrink(target);
    m_count = newCount;
    return ok;
}

template <typename T>
bool Array_c<T>::Grow(int target)
{
    const size_t bytes = sizeof(T*) * static_cast<size_t>(target);
    T** table = static_cast<T**>(m_table ? std::realloc(m_table, bytes) : std::malloc(bytes));
    if (table == nullptr)
        return false;
    m_table = table;
    // The capacity only counts slots that own an item, so a failed item
    // allocation leaves every counted slot valid.
    while (m_capacity < target) {
        T* item = new (std::nothrow) T();
        if (item == nullptr)
            return false;
        m_table[m_capacity++] = item;
    }
    return true;
}

template <typename T>
bool Array_c<T>::Shrink(int target)
{
    for (int i = target; i < m_capacity; ++i)
        delete m_table[i];
    m_capacity = target;
    T** table = static_cast<T**>(std::realloc(m_table, sizeof(T*) * static_cast<size_t>(target)));
    if (table == nullptr)
        return false;  // the larger table stays in use
    m_table = table;
    return true;
}

template <typename T>
bool Array_c<T>::Append(const T& item, int* outIndex)
{
    if (!SetSize(m_count + 1))
        return false;
    *m_table[m_count - 1] = item;
    if (outIndex != nullptr)
        *outIndex = m_count - 1;
    return true;
}

template <typename T>
bool Array_c<T>::Remove(int index)
{
    if (index < 0 || index >= m_count)
        return false;
    T* removed = m_table[index];
    std::memmove(m_table + index, m_table + index + 1, sizeof(T*) * static_cast<size_t>(m_count - index - 1));
    m_table[m_count - 1] = removed;
    return SetSize(m_count - 1);
}

template <typename T>
void Array_c<T>::FreeAllItems()
{
    for (int i = 0; i < m_capacity; ++i)
        delete m_table[i];
    std::free(m_table);
    m_table = nullptr;
    m_count = 0;
    m_capacity = 0;
}
