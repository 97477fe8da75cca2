// SimHost: a painting host in plain memory, for driving the plug-in module without the real host.
//
//   SimHost host;
//   host.Resources().Load("brivane-resources.txt", error);
//   host.SetLayer(MakeLayer(png, LayerKind::Rgb));
//   PluginModule module;
//   module.Load("brivane.so", error);
//   module.Call(kHostSelectorModuleInitialize, host.GetServer());
//   module.Call(kHostSelectorFilterInitialize, host.GetServer());
//   host.SetItemValue(224, "20", error);            // the user moves a slider
//   host.RunFilter(module);                          // selector 514, destination reset first
//   module.Call(kHostSelectorFilterTerminate, host.GetServer());
//   module.Call(kHostSelectorModuleTerminate, host.GetServer());
//
// Every record and service of host/HostApi.h is implemented. Handles are checked against a
// process-wide registry, so a plug-in that uses a released or unknown handle gets an error result
// and a protocol error is recorded (TakeProtocolErrors) instead of a crash; LiveObjects counts what
// the plug-in still holds, for leak checks. Tests may null any record, service or function through
// Records(), Services() and the table accessors to play a host that lacks them.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/HostApi.h"
#include "tools/host/PluginModule.h"
#include "tools/host/ResourceTable.h"

namespace brivane::tools {

// An image the host owns (layer or selection), in the layout of its channel order.
struct SimImage {
    int64_t width = 0;   // pixels
    int64_t height = 0;  // pixels
    int64_t channelOrder = kHostChannelOrderRgbAlpha;
    int64_t channelIndex[4] = {0, 1, 2, 3};  // byte of red, green, blue, alpha (orders 3 and 4)
    int64_t depth = 4;                       // bytes per pixel
    std::vector<uint8_t> pixels;             // rows of width * depth bytes, top row first, no padding

    uint8_t* At(int64_t x, int64_t y) { return pixels.data() + (y * width + x) * depth; }
    const uint8_t* At(int64_t x, int64_t y) const { return pixels.data() + (y * width + x) * depth; }
};

// Bytes per pixel of an offscreen channel order; 0 for an order the host does not know.
int64_t DepthOfChannelOrder(int64_t order);
// Bytes per pixel of a bitmap channel code; 0 for a code the host does not know.
int64_t DepthOfChannelCode(int64_t code);

// A blank image of the given order (all bytes 0); orders 3 and 4 get the indices given.
SimImage MakeImage(int64_t width, int64_t height, int64_t order, const int64_t (&indices)[4] = {0, 1, 2, 3});

struct SimEnumRow {
    int64_t value = 0;
    std::u16string text;
};

// One property item as the panel shows it.
struct SimItem {
    int64_t key = 0;
    int64_t valueKind = 0;  // kHostValueKind...
    int64_t displayKind = 0;
    int64_t inputKind = 0;
    std::optional<std::u16string> caption;  // none when the plug-in passed no caption string
    char accessKey = 0;

    bool boolValue = false;
    bool boolDefault = false;
    int64_t intValue = 0;
    int64_t intDefault = 0;
    int64_t intMin = INT64_MIN;
    int64_t intMax = INT64_MAX;
    double decValue = 0.0;
    double decDefault = 0.0;
    double decMin = -1e308;
    double decMax = 1e308;
    int64_t enumValue = 0;
    int64_t enumDefault = 0;
    std::vector<SimEnumRow> rows;
    HostPoint pointValue{0, 0};
    int64_t pointDefaultKind = 0;
    int64_t pointLimitKind = 0;
};

// Everything the plug-in told the host, for tests and for the panel listing.
struct SimHostLog {
    std::string moduleId;  // as UTF-8
    int64_t moduleKind = 0;
    std::optional<std::u16string> categoryName;
    char categoryKey = 0;
    std::optional<std::u16string> filterName;
    char filterKey = 0;
    std::optional<bool> canPreview;
    std::optional<bool> useEmptyArea;
    std::optional<std::vector<int64_t>> targetKinds;
    bool propertyCallbackSet = false;
    std::vector<std::pair<int64_t, int64_t>> process;  // (state, answer) of every process call
    std::vector<int64_t> progressTotals;
    std::vector<int64_t> progressValues;
    std::vector<HostRect> updatedAreas;
    std::vector<int64_t> missingResourceIds;  // asked for but not in the resource table
};

// Objects the plug-in created and has not released yet, over the whole process.
struct SimLiveObjects {
    int strings = 0;
    int bitmaps = 0;
    int properties = 0;
};
SimLiveObjects LiveObjects();

// What the host knows of a bitmap the plug-in created; false for an unknown handle.
struct SimBitmapInfo {
    int64_t width = 0;
    int64_t height = 0;
    int64_t channelCode = 0;
    int64_t scanline = 0;
    int64_t depth = 0;
    int64_t rowBytes = 0;
};
bool DescribeBitmap(HostBitmap bitmap, SimBitmapInfo& info);

// Seconds the host has spent, over the whole process, in the bitmap services that move or clear
// pixels (create, copy to and from an offscreen): the host's own share of a filter run.
double BitmapServiceSeconds();

// Misuse the host noticed (unknown handles, unknown items, kind mismatches), oldest first; taking
// them clears the list.
std::vector<std::string> TakeProtocolErrors();

class SimHost {
public:
    SimHost();
    ~SimHost();
    SimHost(const SimHost&) = delete;
    SimHost& operator=(const SimHost&) = delete;

    Server* GetServer() { return &m_server; }
    // The tables the server points to; null any entry to play a host that lacks it.
    HostRecordSuite& Records() { return m_records; }
    HostServiceSuite& Services() { return m_services; }
    HostModuleInitRecord& ModuleInitRecord() { return m_moduleInit; }
    HostFilterInitRecord& FilterInitRecord() { return m_filterInit; }
    HostFilterRunRecord& FilterRunRecord() { return m_filterRun; }
    HostStringService& StringService() { return m_stringService; }
    HostPropertyService& PropertyService() { return m_propertyService; }
    HostPointEnumPropertyService& PointEnumService() { return m_pointEnumService; }
    HostOffscreenService& OffscreenService() { return m_offscreenService; }
    HostBitmapService& BitmapService() { return m_bitmapService; }

    // ---- The document ----
    int64_t hostVersion = 1;
    double resolution = 350.0;  // dots per inch
    HostColor mainColor{0, 0, 0};
    uint8_t mainAlpha = 255;
    ResourceTable& Resources() { return m_resources; }
    // The layer the filter works on; the canvas takes its size. The destination starts each run as a
    // copy of it.
    void SetLayer(SimImage layer);
    // A one-byte mask the size of the layer, or none.
    void SetSelection(std::optional<SimImage> selection);
    void SetCanvasSize(int64_t width, int64_t height);
    int64_t CanvasWidth() const { return m_canvasWidth; }
    int64_t CanvasHeight() const { return m_canvasHeight; }
    const SimImage* Layer() const { return m_source.get(); }
    const SimImage* Destination() const { return m_destination.get(); }
    const SimImage* Selection() const { return m_selection.get(); }

    // ---- Answers to the process operation ----
    // Answers given first, in order, whatever the state; then the rules below apply.
    std::deque<int64_t> scriptedAnswers;
    // Number of passes still to be answered with restart at their end.
    int restartsLeft = 0;
    // Answer exit to the first "may I go on?" once the progress value has reached this step; -1 never.
    int64_t cancelAtStep = -1;
    bool Cancelled() const { return m_cancelled; }
    // Seconds from the first stop answer of the last run to the plug-in's return from it; negative when
    // the run was not stopped.
    double StopToReturnSeconds() const { return m_stopToReturn; }
    // Called on every progress value, e.g. to draw a bar.
    std::function<void(int64_t value, int64_t total)> onProgress;

    // ---- Runs ----
    // Resets the destination to the layer and the cancel state, then calls the filter-run selector.
    int64_t RunFilter(PluginModule& module);
    // Seconds spent inside the plug-in's entry point during RunFilter, over all runs.
    double PluginSeconds() const { return m_pluginSeconds; }

    // ---- The panel ----
    // The property object the plug-in handed over; null before filter initialise.
    _Property* Panel() const { return m_panel; }
    void SetPanel(_Property* property) { m_panel = property; }
    // Items of the panel in creation order; empty without a panel.
    const std::vector<SimItem>& Items() const;
    SimItem* FindItem(int64_t key);
    // Sends a notification for an item as the panel does; returns the callback's result, or 0 when no
    // callback is installed.
    int64_t Notify(int64_t key, int64_t notification);
    // Parses text by the item's kind (true/false, integer, decimal, row value, "x,y"), checks it against
    // the item's range or rows, stores it and notifies the plug-in. False with a one-line reason.
    bool SetItemValue(int64_t key, const std::string& text, std::string& error, int64_t* result = nullptr);
    void SetPropertyCallback(HostPropertyCallbackProc callback, void* userData) {
        m_callback = callback;
        m_callbackData = userData;
    }

    SimHostLog& Log() { return m_log; }

    // Used by the host's operations.
    int64_t AnswerProcess(int64_t state);
    void NoteProgress(int64_t value);
    HostOffscreen SourceOffscreen() const;
    HostOffscreen DestinationOffscreen() const;
    HostOffscreen SelectionOffscreen() const;

private:
    Server m_server{};
    HostRecordSuite m_records{};
    HostServiceSuite m_services{};
    HostModuleInitRecord m_moduleInit{};
    HostFilterInitRecord m_filterInit{};
    HostFilterRunRecord m_filterRun{};
    HostStringService m_stringService{};
    HostPropertyService m_propertyService{};
    HostPointEnumPropertyService m_pointEnumService{};
    HostOffscreenService m_offscreenService{};
    HostBitmapService m_bitmapService{};

    ResourceTable m_resources;
    std::unique_ptr<SimImage> m_source;
    std::unique_ptr<SimImage> m_destination;
    std::unique_ptr<SimImage> m_selection;
    int64_t m_canvasWidth = 0;
    int64_t m_canvasHeight = 0;
    bool m_cancelled = false;
    std::chrono::steady_clock::time_point m_stoppedAt;
    double m_stopToReturn = -1;
    int64_t m_passProgress = -1;  // last progress value of the current pass
    double m_pluginSeconds = 0.0;
    _Property* m_panel = nullptr;
    HostPropertyCallbackProc m_callback = nullptr;
    void* m_callbackData = nullptr;
    SimHostLog m_log;
};

}  // namespace brivane::tools
