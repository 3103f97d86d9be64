// Intrusive reference counts kept in a holder apart from the counted object.
#pragma once

#include <cassert>
#include <cstdint>

class CARefCountBase {
public:
    // Throws boost::thread_resource_error when the count's mutex cannot be made.
    CARefCountBase();
    virtual ~CARefCountBase();

    CARefCountBase(const CARefCountBase&) = delete;
    CARefCountBase& operator=(const CARefCountBase&) = delete;

    void AddReference();
    // The object deletes itself when the count drops to 0.
    void RemoveReference();
    // Unlocked snapshots.
    bool IsShared() const;
    int64_t GetRefCount() const;

private:
    struct TCount;
    TCount* m_count;
};

template <typename T>
class CARefCount : public CARefCountBase {
public:
    T* GetPointee() const { return m_pointee; }

protected:
    explicit CARefCount(T* pointee) : m_pointee(pointee) {}
    // The derived holder deletes and clears the pointee first.
    ~CARefCount() override { assert(!m_pointee); }

    T* m_pointee;
};
