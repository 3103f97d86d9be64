#pragma once
// The service's main thread on the one processor its host's thread uses
// while it waits for answers (EVC_PROCESSOR, set by a client that asks for
// it): each hand-over then wakes a thread on a processor that is running,
// not one that sleeps. The main thread is kept there only between
// CompressFrame commands once the stream runs: codecs count the processors
// they may use when they are set up and started, and would see only one.
// Threads a codec starts meanwhile get the service's whole set back after
// the command, and a main thread that does most of the codec's work itself
// (a single-threaded encoder) is let go for good, since two of them kept on
// one processor would halve their speed.

#include "ipc/CAExternalVideoProxySharedData.h"

// At start: reads EVC_PROCESSOR; nothing is kept anywhere yet.
void StartProcessorShare();
// Before a command: any command but CompressFrame runs on the whole set.
void ProcessorShareBeforeCommand(CAExternalVideoProxySharedData::TCommand command);
// After a command: hands new threads the whole set; after the second
// CompressFrame, keeps the main thread on the processor, or lets it go once
// it keeps that processor busy.
void ProcessorShareAfterCommand(CAExternalVideoProxySharedData::TCommand command);
