#include "file/DummyZmapDocument.h"

#include "file/ZmapDocumentCommands.h"

DummyZmapDocument::DummyZmapDocument() {
    editor.setCommands(&ZmapDocumentCommands::instance());
}
