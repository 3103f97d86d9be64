#pragma once
// How the service's main thread, which hands the turn back and forth with
// the host, is scheduled. It asks for the shortest slice, so that it runs as
// soon as the host posts even while the codec's threads fill the processors.
// With EVC_PROCESSOR (set by a client that asks for it) it also stays on the
// one processor its host's thread uses while that waits for answers, so that
// each hand-over wakes a thread on a processor that is running, not one that
// sleeps; but only between CompressFrame commands once the stream runs:
// codecs count the processors they may use when they are set up and started,
// and would see only one. Threads a codec starts meanwhile get the service's
// whole set back after the command. A main thread that does most of the
// codec's work itself (a single-threaded encoder, or one whose main thread
// encodes too) is let go of both for good: the hand-over is then a small
// part of its time, and two of them kept on one processor would halve their
// speed.

#include "ipc/CAExternalVideoProxySharedData.h"

// At start, before any other thread: the short slice, and EVC_PROCESSOR read
// (nothing is kept anywhere yet).
void StartMainThreadScheduling();
// Before a command: any command but CompressFrame runs on the whole set.
void MainThreadBeforeCommand(CAExternalVideoProxySharedData::TCommand command);
// After a command: hands new threads the whole set; after the second
// CompressFrame, keeps the main thread on the processor; lets both go once
// the main thread keeps its processor busy.
void MainThreadAfterCommand(CAExternalVideoProxySharedData::TCommand command);
