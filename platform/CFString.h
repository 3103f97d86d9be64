// A CoreFoundation string made from UTF-8 text and released when the holder
// goes: the way the plug-in host passes names and types to the bundle calls.
#pragma once

#include "platform/CoreFoundation.h"

class TCFString {
public:
    explicit TCFString(const char* text)
        : m_string(CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8))
    {
    }
    ~TCFString()
    {
        if (m_string != nullptr)
            CFRelease(m_string);
    }
    TCFString(const TCFString&) = delete;
    TCFString& operator=(const TCFString&) = delete;

    // Null when the text could not be converted.
    CFStringRef get() const { return m_string; }

private:
    CFStringRef m_string;
};
