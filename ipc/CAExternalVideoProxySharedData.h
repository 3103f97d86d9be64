#pragma once
// The command record that the client and the service share inside the
// segment. Its layout is fixed: both processes read it at the same offsets.

#include <cstddef>
#include <cstdint>

#include "ipc/details/ASharedMemory.h"

struct CAExternalVideoProxySharedData {
    // Command codes. Any 32-bit value can arrive from the other side; the
    // receiver must cope with codes outside this list.
    enum TCommand : int32_t {
        kNone = 0,
        kBegin = 1,
        kEnd = 2,
        kCompressFrame = 3,
        kIsLastPassEncodingReady = 4,
        kSetOutput = 5,
        kSetInputColorFormat = 6,
        kSetFileFormatHint = 7,
        kSetStreamModeHint = 8,
        kQuit = 9,
    };

    // Only the semaphores need values other than zero; the segment hands out
    // zero-filled blocks, so every other byte starts as 0.
    CAExternalVideoProxySharedData() : m_lock(1), m_commandSemaphore(0), m_responseSemaphore(0) {}

    CASharedMemory::TSemaphore m_lock;               // guards command, status and the two frame flags
    CASharedMemory::TSemaphore m_commandSemaphore;   // posted by the client
    CASharedMemory::TSemaphore m_responseSemaphore;  // posted by the service
    uint32_t m_reserved12;
    TCommand m_command;
    uint32_t m_reserved20;
    uint32_t m_status;
    uint32_t m_reserved28;
    uint8_t m_isKeyFrame;
    uint8_t m_reserved33[7];
    uint8_t m_isLastFrame;
    uint8_t m_reserved41[7];
    uint8_t m_beginFlag;
    uint8_t m_reserved49[7];
    uint8_t m_isLastPassEncodingReady;
    uint8_t m_reserved57[7];
    uint32_t m_fileFormatHint;
    uint32_t m_reserved68;
    uint32_t m_inputColorFormat;
    uint32_t m_reserved76;
    uint32_t m_streamModeHint;
    uint32_t m_reserved84;
    int32_t m_payloadSize0;
    uint32_t m_reserved92;
    int32_t m_payloadSize1;
    uint32_t m_reserved100;
    int32_t m_payloadSize2;
    uint32_t m_reserved108;
    // Start of the payload area, which runs on to the end of the segment.
    uint8_t m_payload[8];
};

static_assert(sizeof(CASharedMemory::TSemaphore) == 4, "in-segment semaphore is 32 bits");
static_assert(sizeof(CAExternalVideoProxySharedData) == 120, "record size");
static_assert(offsetof(CAExternalVideoProxySharedData, m_lock) == 0, "m_lock");
static_assert(offsetof(CAExternalVideoProxySharedData, m_commandSemaphore) == 4, "m_commandSemaphore");
static_assert(offsetof(CAExternalVideoProxySharedData, m_responseSemaphore) == 8, "m_responseSemaphore");
static_assert(offsetof(CAExternalVideoProxySharedData, m_command) == 16, "m_command");
static_assert(offsetof(CAExternalVideoProxySharedData, m_status) == 24, "m_status");
static_assert(offsetof(CAExternalVideoProxySharedData, m_isKeyFrame) == 32, "m_isKeyFrame");
static_assert(offsetof(CAExternalVideoProxySharedData, m_isLastFrame) == 40, "m_isLastFrame");
static_assert(offsetof(CAExternalVideoProxySharedData, m_beginFlag) == 48, "m_beginFlag");
static_assert(offsetof(CAExternalVideoProxySharedData, m_isLastPassEncodingReady) == 56, "m_isLastPassEncodingReady");
static_assert(offsetof(CAExternalVideoProxySharedData, m_fileFormatHint) == 64, "m_fileFormatHint");
static_assert(offsetof(CAExternalVideoProxySharedData, m_inputColorFormat) == 72, "m_inputColorFormat");
static_assert(offsetof(CAExternalVideoProxySharedData, m_streamModeHint) == 80, "m_streamModeHint");
static_assert(offsetof(CAExternalVideoProxySharedData, m_payloadSize0) == 88, "m_payloadSize0");
static_assert(offsetof(CAExternalVideoProxySharedData, m_payloadSize1) == 96, "m_payloadSize1");
static_assert(offsetof(CAExternalVideoProxySharedData, m_payloadSize2) == 104, "m_payloadSize2");
static_assert(offsetof(CAExternalVideoProxySharedData, m_payload) == 112, "m_payload");
