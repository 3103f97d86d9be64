// Shared ownership of an object of type T whose class derives from Base; the
// count lives in a separately allocated, mutex-protected holder.
#pragma once

#include "media/CARefCount.h"

#include <type_traits>

template <typename T, typename Base = T>
class CASharedPtr {
    static_assert(std::is_base_of<Base, T>::value, "T must derive from Base");
    static_assert(std::has_virtual_destructor<Base>::value, "the pointee is deleted through Base");

public:
    // An empty pointer: a holder of no object, with its own count of 1.
    CASharedPtr() : CASharedPtr(nullptr) {}
    // Takes ownership of a new object (may be null). If the holder cannot be
    // made, the object is deleted and the error rethrown.
    explicit CASharedPtr(T* object)
    {
        try {
            m_holder = new CountHolder(object);
        } catch (...) {
            delete static_cast<Base*>(object);
            throw;
        }
        m_holder->AddReference();
    }
    CASharedPtr(const CASharedPtr& other) : m_holder(other.m_holder) { m_holder->AddReference(); }
    CASharedPtr& operator=(const CASharedPtr& other)
    {
        if (other.m_holder == m_holder)
            return *this;
        // Take the new reference first: dropping the old one may destroy the
        // object that holds `other`.
        CountHolder* old = m_holder;
        m_holder = other.m_holder;
        m_holder->AddReference();
        old->RemoveReference();
        return *this;
    }
    ~CASharedPtr() { m_holder->RemoveReference(); }

    T* get() const { return static_cast<T*>(m_holder->GetPointee()); }
    T* operator->() const { return get(); }
    T& operator*() const { return *get(); }
    explicit operator bool() const { return get() != nullptr; }

    bool IsShared() const { return m_holder->IsShared(); }
    int64_t GetRefCount() const { return m_holder->GetRefCount(); }

private:
    class CountHolder : public CARefCount<Base> {
    public:
        explicit CountHolder(T* object) : CARefCount<Base>(object) {}
        ~CountHolder() override
        {
            delete this->m_pointee;
            this->m_pointee = nullptr;
        }
    };

    CountHolder* m_holder;
};
