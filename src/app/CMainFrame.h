#pragma once

#include "core/Status.h"
#include "image/DocumentCommands.h"

#include <QMainWindow>
#include <QStringList>

#include <functional>
#include <memory>
#include <vector>

class CCubicView;
class CQuorvaleDoc;
class CQuorvaleView;
class CToolWindow;
class ProgressReporter;
class ToolFeedback;
class QAction;
class QActionGroup;
class QLabel;
class QMdiArea;
class QMdiSubWindow;
class QMenu;

/// The main window: every open document in a window of its own (several views of one
/// document may be open, each showing a channel), the menus, the status bar with the
/// pixel under the cursor and the progress of long work, the recent files, and drops of
/// .zmp and .zmq files. Owns the documents.
class CMainFrame : public QMainWindow {
    Q_OBJECT

public:
    static constexpr int recentFileCount = 4;

    CMainFrame();
    ~CMainFrame() override;

    /// Opens a file in a new window; an open document of that path is activated instead.
    /// On failure the message has been shown and no window is made.
    Status openDocument(const QString& path);
    /// Makes a new document from `params` in a new window, fitted to the window.
    Status newDocument(const NewImageParams& params);
    /// A new document from a picture file (or a cube panorama from one) in a new window.
    Status newFromPicture(const QString& path, bool panorama);
    /// A new document made by `make`, shown in a new window if `make` succeeds.
    Status makeDocument(const std::function<Status(CQuorvaleDoc&)>& make);
    /// A second window on the active document, showing `channel`.
    CQuorvaleView* newWindow(std::uint32_t channel);

    /// Saves the active document (Save As for one never saved, asking for a name).
    bool saveActive();
    /// Saves the active document under `path`.
    Status saveActiveAs(const QString& path);
    /// Closes every window; false if the user kept one (a save was cancelled).
    bool closeAll();

    CQuorvaleView* activeView() const;
    /// The panorama view of the active window, null when it is an image view.
    CCubicView* activeCubicView() const;
    /// A panorama window on `doc` (a cube image).
    CCubicView* addCubicView(CQuorvaleDoc& doc);
    CQuorvaleDoc* activeDocument() const;
    std::vector<CQuorvaleView*> views() const;
    /// The panorama views of every window.
    std::vector<CCubicView*> cubicViews() const;
    std::size_t documentCount() const { return documents_.size(); }
    QMdiArea* mdiArea() const { return mdi_; }
    ProgressReporter& progress() const { return *progress_; }
    /// The docked tool window (toolbox and tool pages).
    CToolWindow& toolWindow() const { return *tools_; }
    /// A left click on image pixel (x, y) of `view` with the current tool, as one stroke of
    /// one point: the fill fills there, a brush lays a dab, a line starts (the navigation
    /// tools are the view's own).
    void applyTool(CQuorvaleView* view, int x, int y);
    QStringList recentFiles() const { return recent_; }
    /// The texts of the status bar: pixel, world point, depth, material.
    QStringList statusTexts() const;
    /// Shows what lies under image pixel (x, y) of the active view in the status bar.
    void showPixelInfo(int x, int y, bool inside);
    /// The action of a menu command by its object name ("fileNew", "editUndo", ...).
    QAction* action(const QString& name) const;

    /// Every view re-reads the display settings (after the preferences changed).
    void applyDisplaySettings();
    /// Stores the window's placement in MainWindowPosition and MainWindowMax.
    void storePlacement();
    /// Shows the window as MainWindowMax and MainWindowPosition say.
    void showWithStoredPlacement();

public slots:
    void onFileNew();
    void onFileNewFromModel();
    void onFileOpen();
    void onFileNewPanorama();
    void onFileExport();
    void onFileExportPanorama();
    void onImportChannel();
    void onFileSave();
    void onFileSaveAs();
    void onFileRevert();
    void onFileClose();
    void onPreferences();

protected:
    void closeEvent(QCloseEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    friend class CChildFrame;
    void createMenus();
    QAction* addAction(QMenu* menu, const QString& name, const QString& text,
                       const QList<QKeySequence>& keys, void (CMainFrame::*slot)());
    CQuorvaleView* addView(CQuorvaleDoc& doc, std::uint32_t channel, bool fit);
    /// The first window of a new or opened document: a panorama view for a cube image,
    /// else an image view.
    void addFirstView(CQuorvaleDoc& doc);
    void updateTitle(CQuorvaleDoc& doc);
    void updateActions();
    void addRecentFile(const QString& path);
    void updateRecentMenu();
    /// The last window of `doc` is closing: may it (saved or not wanted)?
    bool mayCloseDocument(CQuorvaleDoc& doc);
    void windowClosed();
    void runOnActive(Status (CQuorvaleDoc::*command)());
    void showChannel(std::uint32_t channel);

    /// The tool window's tool as the views' navigation.
    void toolChanged(int toolId);
    /// The active document's materials to the locks' page.
    void offerMaterials();

    QMdiArea* mdi_;
    CToolWindow* tools_;
    std::unique_ptr<ProgressReporter> progress_;
    /// Where the tools show their prompts (the status bar) and their pseudo-cursors.
    std::unique_ptr<ToolFeedback> feedback_;
    std::vector<std::unique_ptr<CQuorvaleDoc>> documents_;
    QStringList recent_;
    QMenu* recentMenu_ = nullptr;
    QActionGroup* channelGroup_ = nullptr;
    QLabel* pixelLabel_;
    QLabel* worldLabel_;
    QLabel* depthLabel_;
    QLabel* materialLabel_;
    bool closing_ = false;
};
