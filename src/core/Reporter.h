#pragma once

#include "core/Handle.h"
#include "core/TqlError.h"

/// Progress and abandonment of long work. report() returns true to abandon.
class Reporter : public TQL::Handlable {
public:
    /// Thrown to leave a deep loop when report() asked to abandon.
    class Abandoned : public TQL::TqlError {
    public:
        Abandoned() : TqlError(L"Operation abandoned") {}
    };

    /// `done` of `total` steps are complete, and `fraction` (0 to 1) of the next one:
    /// overall progress is (done + fraction) / total. Returns true to abandon the work.
    virtual bool report(unsigned total, unsigned done, double fraction) = 0;
};

/// Answers whether the user asked to stop (Escape in the application, Ctrl+C in the
/// command-line tool). Polled by long loops between pieces of work.
class StopRequest {
public:
    virtual ~StopRequest() = default;
    virtual bool stopRequested() = 0;
};

namespace TQL {
/// The installed stop poll (not owned), or null, meaning nobody asks to stop.
StopRequest* stopRequest();
void setStopRequest(StopRequest* stop);
/// True if a stop poll is installed and says stop.
bool stopRequested();
} // namespace TQL
