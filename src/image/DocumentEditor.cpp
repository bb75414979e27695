#include "image/DocumentEditor.h"

#include "core/StringUtils.h"
#include "image/DocumentCommands.h"
#include "image/DocumentViews.h"
#include "image/ZmapDocument.h"

#include <algorithm>

namespace {

DocumentToolState* processToolState = nullptr;

/// Undo descriptions (string ids) of the commands that close undo levels with a name.
constexpr std::int32_t flattenDescription = 10059;
constexpr std::int32_t autoLevelsDescription = 10287;

bool releasesToolState(std::int32_t command) {
    return command == commandRevert || command == commandPasteImage || command == commandUndo ||
           command == commandFlatten;
}

/// Repaints every view of the document.
void repaintAll(const ZmapDocument& document) {
    if (DocumentViews* views = document.views()) {
        views->invalidate(IExtent<2>());
    }
}

} // namespace

DocumentEditor::DocumentEditor(ZmapDocument* owner) : document(owner) {}

DocumentEditor::~DocumentEditor() {
    releaseRunningStroke(document);
}

void DocumentEditor::setRepeatAction(const TQL::Handle<RepeatableAction>& action) {
    repeatAction_ = action;
}

void DocumentEditor::setToolState(DocumentToolState* toolState) {
    processToolState = toolState;
}

void DocumentEditor::tell(std::int32_t id, const std::wstring& text) const {
    if (messages_) {
        messages_->message(id, text);
    }
}

void DocumentEditor::tellProgress(std::int32_t id, const std::wstring& text) const {
    if (messages_) {
        messages_->progressText(id, text);
    }
}

void DocumentEditor::execute(Status& status, std::int32_t command,
                             const CommandArgument& argument) {
    if (command < 0 || command >= commandCount) {
        status = status::unknownCommand;
        return;
    }
    if (!document) {
        status = status::noImage;
        return;
    }
    if (DocumentViews* views = document->views()) {
        views->endCapture();
        views->cancelDrawing();
    }
    if (releasesToolState(command) && processToolState) {
        processToolState->releaseDocument(*document);
    }

    // The file commands' bodies, with their argument where they take one.
    auto files = [&](auto body) {
        if (commands_) {
            body(*commands_);
        } else {
            status = status::noImage;
        }
    };
    auto fileWith = [&]<class Arg>(const Arg* arg, auto body) {
        if (!arg) {
            status = status::noImage;
        } else {
            files([&](DocumentCommands& c) { body(c, *arg); });
        }
    };

    status = status::ok;
    switch (static_cast<DocumentCommand>(command)) {
    case commandNothing:
        break;
    case commandNew:
        fileWith(argument.get<NewImageParams>(), [&](DocumentCommands& c, const auto& params) {
            c.newImage(status, *document, params);
        });
        break;
    case commandOpen:
        fileWith(argument.get<FileArgument>(), [&](DocumentCommands& c, const auto& file) {
            c.open(status, *document, file.path);
        });
        if (status == status::ok) {
            lastPlane = document->defaultPlane();
        }
        break;
    case commandSave:
        files([&](DocumentCommands& c) { c.save(status, *document); });
        break;
    case commandSaveAs:
        fileWith(argument.get<FileArgument>(), [&](DocumentCommands& c, const auto& file) {
            c.saveAs(status, *document, file.path);
        });
        break;
    case commandRevert:
        files([&](DocumentCommands& c) { c.revert(status, *document); });
        if (DocumentViews* views = document->views()) {
            views->update(viewHintChanged);
        }
        break;
    case commandCommit:
        commit(status);
        break;
    case commandPasteImage:
        paste(status, argument);
        break;
    case commandImportChannel:
        fileWith(argument.get<ChannelImportArgument>(),
                 [&](DocumentCommands& c, const auto& import) {
                     c.importChannel(status, *document, import);
                 });
        break;
    case commandUndo:
        stepUndo(status, false);
        break;
    case commandRedo:
        stepUndo(status, true);
        break;
    case commandRepeat:
        repeat(status);
        break;
    case commandCrop:
        crop(status, argument);
        break;
    case commandMaterialSet:
        materialSet(status, argument);
        break;
    case commandFlatten:
        flatten(status);
        break;
    case commandAutoLevels:
        autoLevels(status);
        break;
    case commandCount:
        status = status::unknownCommand;
        break;
    }
    if (status != status::ok && status != status::warning) {
        return;
    }

    const std::uint32_t flags = commandFlags(command);
    if (flags & commandChangesDocument) {
        const bool backToSaved = (command == commandUndo || command == commandRedo) && undoBuffer &&
                                 undoBuffer->atSavedState() && !changedSinceOpen_;
        document->setChanged(!backToSaved);
        if (!(flags & commandKeepsChangedSinceOpen)) {
            changedSinceOpen_ = 1;
        }
    } else if (flags & commandCountsAsSaved) {
        // A save doesn't clear the byte: what the store can't take back stays so.
        document->setChanged(false);
        if (undoBuffer) {
            undoBuffer->markSaved();
        }
    }
}

void DocumentEditor::pushLevel(Status& status, std::int32_t description) {
    if (undoBuffer) {
        undoBuffer->pushLevel(status, description);
    }
}

void DocumentEditor::commit(Status& status) {
    if (!document->rgb) {
        status = status::noImage;
        return;
    }
    // Whatever a pass applied so far now belongs to the originals.
    appliedExtents.clear();
    if (strokeAlpha) {
        strokeAlpha->clearAll();
    }
    document->commitOriginals();
}

void DocumentEditor::paste(Status& status, const CommandArgument& argument) {
    const RgbImage* image = argument.get<RgbImage>();
    if (!image) {
        status = status::noImage;
        return;
    }
    document->pasteCentred(status, *image);
    if (status == status::ok) {
        pushLevel(status, 0);
        repaintAll(*document);
    }
}

void DocumentEditor::stepUndo(Status& status, bool forward) {
    if (!undoBuffer) {
        status = status::noImage;
    } else if (forward) {
        undoBuffer->redo(status);
    } else {
        undoBuffer->undo(status);
    }
}

void DocumentEditor::repeat(Status& status) {
    if (!repeatAction_ || !undoBuffer) {
        status = status::noConversion; // nothing to repeat
        return;
    }
    // The action replaces its last run: that is taken back first, unless already undone.
    if (!undoBuffer->canRedo() && undoBuffer->canUndo()) {
        undoBuffer->undo(status);
        if (status != status::ok) {
            return;
        }
    }
    repeatAction_->run(status, *document);
    if (status == status::ok) {
        pushLevel(status, repeatAction_->description());
        repaintAll(*document);
    }
}

void DocumentEditor::crop(Status& status, const CommandArgument& argument) {
    const IExtent<2>* keep = argument.get<IExtent<2>>();
    if (!keep) {
        status = status::noImage;
        return;
    }
    DocumentViews* views = document->views();
    if (views) {
        views->update(viewHintAboutToChange);
    }
    document->crop(status, *keep);
    if (status == status::ok && undoBuffer) {
        // No level of the old size can be undone into the new one.
        undoBuffer->restart(status, 0);
    }
    if (views) {
        views->update(viewHintChanged);
    }
}

void DocumentEditor::materialSet(Status& status, const CommandArgument& argument) {
    const MaterialSetArgument* set = argument.get<MaterialSetArgument>();
    if (!set) {
        status = status::noImage;
        return;
    }
    if (set->ids.empty()) {
        status = status::noConversion;
        return;
    }
    const std::vector<MaterialId>& ids = set->ids;
    for (const MaterialId id : ids) {
        if (!document->materialExists(id)) {
            status = status::notFound;
            return;
        }
    }
    auto inSet = [&](MaterialId id, std::size_t upTo) {
        return std::find(ids.begin(), ids.begin() + static_cast<std::ptrdiff_t>(upTo), id) !=
               ids.begin() + static_cast<std::ptrdiff_t>(upTo);
    };
    switch (set->action) {
    case MaterialAction::rename: {
        if (set->name.empty()) {
            status = status::badName;
            return;
        }
        // A name is taken by a live material outside the set, or by one of the set that
        // has its new name already.
        auto taken = [&](const std::wstring& name, std::size_t renamed) {
            for (const auto& [id, record] : document->materials()) {
                if (!record.deleted && compareCaseBlind(record.name, name) == 0 &&
                    (!inSet(id, ids.size()) || inSet(id, renamed))) {
                    return true;
                }
            }
            return false;
        };
        if (taken(set->name, 0)) {
            status = status::exists;
            return;
        }
        for (std::size_t k = 0; k < ids.size(); ++k) {
            std::wstring name = set->name;
            if (k > 0) {
                int n = 0;
                do {
                    name = set->name + stringPrintf(L" %d", ++n);
                } while (taken(name, k));
            }
            document->renameMaterial(ids[k], name, document->materialColour(ids[k]));
        }
        break;
    }
    case MaterialAction::recolour:
        for (const MaterialId id : ids) {
            document->renameMaterial(id, document->materialName(id), set->colour);
        }
        break;
    case MaterialAction::remove:
        for (const MaterialId id : ids) {
            document->deleteMaterial(id);
        }
        break;
    case MaterialAction::hotLink:
        for (const MaterialId id : ids) {
            document->setHotLink(id, set->hotLink);
        }
        break;
    }
    pushLevel(status, 0);
    repaintAll(*document);
}

void DocumentEditor::flatten(Status& status) {
    document->flattenOverlay(status);
    if (status == status::ok) {
        pushLevel(status, flattenDescription);
        repaintAll(*document);
    }
}

void DocumentEditor::autoLevels(Status& status) {
    document->autoLevels(status);
    if (status == status::ok) {
        pushLevel(status, autoLevelsDescription);
        repaintAll(*document);
    }
}
