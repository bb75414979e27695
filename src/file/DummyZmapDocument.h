#pragma once

#include "image/DocumentCommands.h"
#include "image/ZmapDocument.h"

/// A document without a window, for work that needs a document and no view (the
/// command-line tool, thumbnails, tests): its changed flag goes nowhere, and its commands
/// include those that need files (DocumentCommands.h).
class DummyZmapDocument : public ZmapDocument {
public:
    DummyZmapDocument();
    void setChanged(bool) override {}
};
