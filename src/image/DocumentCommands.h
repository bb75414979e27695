#pragma once

#include "core/Colour.h"
#include "core/Extent.h"
#include "core/Handle.h"
#include "core/Status.h"
#include "image/MaterialRecord.h"
#include "image/ModelImageSettings.h"
#include "image/ZmapDocument.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

/// The numbered commands of DocumentEditor::execute, the only door through which a whole
/// document changes.
enum DocumentCommand : std::int32_t {
    commandNothing = 0,
    commandNew = 1,           ///< NewImageParams
    commandOpen = 2,          ///< FileArgument: a .zmp or .zmq file
    commandSave = 3,          ///< to the document's path
    commandSaveAs = 4,        ///< FileArgument; the path changes on success
    commandRevert = 5,        ///< read the document's file anew
    commandCommit = 6,        ///< the originals take the present image
    commandPasteImage = 7,    ///< RgbImage, centred
    commandImportChannel = 8, ///< ChannelImportArgument
    commandUndo = 9,
    commandRedo = 10,
    commandRepeat = 11,      ///< the editor's repeatable action again
    commandCrop = 12,        ///< IExtent<2>: the pixels to keep
    commandMaterialSet = 13, ///< MaterialSetArgument
    commandFlatten = 14,     ///< the overlay layer into the image
    commandAutoLevels = 15,
    commandCount = 16,
};

/// Flags of a command: how it bears on the document's changed flag.
enum CommandFlag : std::uint32_t {
    commandChangesDocument = 1,      ///< on success the document is changed...
    commandCountsAsSaved = 2,        ///< ...or, without bit 0, saved
    commandKeepsChangedSinceOpen = 4 ///< the store can take it back: doesn't set the byte
};

/// The flags of command `command` (0 to 15).
std::uint32_t commandFlags(std::int32_t command);

/// The kinds of new document.
enum class NewImageKind : std::int32_t {
    plain = 0,              ///< a size and a background colour
    fromRaster = 1,         ///< a raster file's size and pixels
    panoramaFromFile = 2,   ///< a cube panorama from a file
    panoramaFromRaster = 3, ///< a cube panorama from a raster
    model = 4,              ///< a model rendered to an image
};

/// What the new-document command makes.
struct NewImageParams {
    NewImageKind kind = NewImageKind::plain;
    std::int32_t width = 0;
    std::int32_t height = 0;
    ColourPOD background{255, 255, 255};
    /// The raster, panorama or model file of the other kinds.
    std::wstring sourcePath;
    /// Pixels per metre.
    float xResolution = 3779.5276f;
    float yResolution = 3779.5276f;
    std::wstring description;
    /// The view, light and cut of the model kind.
    ModelImageSettings model;
};

/// The path of open and save as.
struct FileArgument {
    std::wstring path;
};

/// A raster file read into one channel of the document.
struct ChannelImportArgument {
    std::wstring path;
    std::uint32_t channel = channelRgb; ///< a ChannelId
};

/// What the material-set command does to each material of its set.
enum class MaterialAction : std::int32_t {
    rename = 0,   ///< the first id takes `name`, any others "name 1", "name 2"...
    recolour = 1, ///< every id takes `colour`
    remove = 2,   ///< every id is deleted (marked deleted while it has users)
    hotLink = 3,  ///< every id takes `hotLink`
};

/// The argument of the material-set command.
struct MaterialSetArgument {
    std::vector<MaterialId> ids;
    MaterialAction action = MaterialAction::rename;
    std::wstring name;
    ColourPOD colour;
    MatHotLink hotLink;
};

/// The argument of a command: nothing, or the record that command takes.
struct CommandArgument {
    using Value = std::variant<std::monostate, NewImageParams, FileArgument, RgbImage,
                               ChannelImportArgument, IExtent<2>, MaterialSetArgument>;

    CommandArgument() = default;
    template <class T>
    requires std::is_constructible_v<Value, T&&> CommandArgument(T&& v)
        : value(std::forward<T>(v)) {}

    template <class T> const T* get() const { return std::get_if<T>(&value); }

    Value value;
};

/// The bodies of the commands that need files (and, later, raster import and the model
/// renderer): the file library implements them. The editor checks the command's argument
/// before it calls them.
class DocumentCommands {
public:
    virtual ~DocumentCommands() = default;
    virtual void newImage(Status& status, ZmapDocument& document, const NewImageParams& params) = 0;
    virtual void open(Status& status, ZmapDocument& document, const std::wstring& path) = 0;
    virtual void save(Status& status, ZmapDocument& document) = 0;
    virtual void saveAs(Status& status, ZmapDocument& document, const std::wstring& path) = 0;
    virtual void revert(Status& status, ZmapDocument& document) = 0;
    virtual void importChannel(Status& status, ZmapDocument& document,
                               const ChannelImportArgument& argument) = 0;
};

/// The tools' state that refers to a document: the current applicator and the pick
/// history. Released before commands that replace the image under them (revert, paste,
/// undo, flatten). The tools implement it once for the process.
class DocumentToolState {
public:
    virtual ~DocumentToolState() = default;
    virtual void releaseDocument(ZmapDocument& document) = 0;
};

/// An action the repeat command can run again (the last stroke, with the present settings).
class RepeatableAction : public TQL::Handlable {
public:
    /// Runs the action on `document`'s live channels; the editor closes the undo level.
    virtual void run(Status& status, ZmapDocument& document) = 0;
    /// The undo description (a string id) of the action.
    virtual std::int32_t description() const = 0;
};

/// What commands tell the user: messages by number, with the finished text (the numbered
/// string filled in with the path or the status text). The application shows them; the
/// command-line tool prints them.
class CommandMessages {
public:
    virtual ~CommandMessages() = default;
    /// A message box: a warning or an error of a command.
    virtual void message(std::int32_t id, const std::wstring& text) = 0;
    /// The text of the progress window (reading, done).
    virtual void progressText(std::int32_t id, const std::wstring& text) = 0;
};

/// Numbered string `id` used as a format with the text arguments (each "%ls" takes one in
/// turn); without the string, the arguments joined by ": ".
std::wstring commandText(std::int32_t id, const std::vector<std::wstring>& arguments);

/// Makes `document` a plain image of the parameters' size, every colour pixel the
/// background (a black background leaves the colour tiles empty, which read black), depth
/// nowhere (the depth channel's empty tiles read 0xFFFFFFFF), with a camera looking along
/// the world's y axis through a window of the image's proportions, the parameters'
/// description and resolution, and every channel made (allocateChannels). The document is
/// cleared first. -10 for a size beyond the tile limit or out of memory, -12 for a side of
/// 0 or less; on failure the document is left empty.
void makePlainImage(Status& status, ZmapDocument& document, const NewImageParams& params);
