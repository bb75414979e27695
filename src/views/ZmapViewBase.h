#pragma once

#include "core/Extent.h"

#include <atomic>
#include <cstdint>

class PseudoCursor;
class ZmapDocument;

/// What every view of a document has, whatever draws it: the channel it shows, and the
/// process-wide cursor and pick state (which view the mouse was last seen in).
class ZmapViewBase {
public:
    ZmapViewBase() = default;
    virtual ~ZmapViewBase();
    ZmapViewBase(const ZmapViewBase&) = delete;
    ZmapViewBase& operator=(const ZmapViewBase&) = delete;

    virtual ZmapDocument& document() const = 0;

    /// The shown channel, a ChannelId (1 colour by default). Read by the drawing thread.
    std::uint32_t shownChannel() const { return shownChannel_.load(std::memory_order_acquire); }
    /// Shows another channel: the drawing stops, and a drawing view redraws the whole
    /// image.
    virtual void setShownChannel(std::uint32_t channelId);
    /// Image pixels changed (empty: all): queue them for drawing.
    virtual void invalidateImage(const IExtent<2>& extent) = 0;
    /// Channels `mask` changed over `extent` (empty: all): a drawing view showing one of
    /// them (see ZmapView::reactsTo) redraws it.
    void channelsChanged(std::uint32_t mask, const IExtent<2>& extent = IExtent<2>());

    /// The current pseudo-cursor (one for the process) and the view it belongs to; null to
    /// remove it. Interface thread.
    static void SetPseudoCursor(PseudoCursor* cursor, ZmapViewBase* view);
    static PseudoCursor* pseudoCursor();
    static ZmapViewBase* pseudoCursorView();

    /// The capture of the mouse by a pseudo-cursor: one for the process. beginCapture fails
    /// (false) while one runs. endCapture clears it and tells the capturing view, which
    /// hears of it later on the interface thread (a posted notification with `accepted`);
    /// with no capture running it does nothing. Every document command ends it, refused.
    static bool beginCapture(ZmapViewBase* view, std::uint32_t flags = 0);
    static void endCapture(bool accepted);
    static ZmapViewBase* captureView();
    static std::uint32_t captureFlags();

    /// The view the mouse was last seen in (the pick state); null for none. A view being
    /// destroyed leaves the pick state and the cursor.
    static ZmapViewBase* pickView();
    static void setPickView(ZmapViewBase* view);

protected:
    /// True while the view draws (after its initial update, outside a structure change).
    virtual bool drawsNow() const { return false; }
    /// Stops the drawing of this view that may be under way.
    virtual void stopDrawing() {}

    /// The capture of this view ended (see endCapture); posts its notification.
    virtual void captureEnded(bool /*accepted*/) {}

    void storeShownChannel(std::uint32_t channelId) {
        shownChannel_.store(channelId, std::memory_order_release);
    }

private:
    std::atomic<std::uint32_t> shownChannel_{1};
};
