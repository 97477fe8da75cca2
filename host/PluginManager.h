// PluginManager: the plug-in's side of the host protocol, made concrete by one derived class.
//
// The entry point (PluginEntry.cpp) creates one manager at module initialise, hands it the host's
// Server record on every later call and turns the selectors into the hooks below. A derived class
// describes the filter (OnGetGuid, OnInitFilter builds the panel) and draws (OnPrepareDraw,
// OnUpdateParameter, OnCalculate, OnExitDraw); the base class does the talking to the host:
//
//   class MyManager : public PluginManager {
//       void OnGetGuid(char* buffer) override { strcpy(buffer, "...36 characters..."); }
//       bool OnInitFilter() override { SetPluginName(101, 't', 102, 's'); AddSlider(224, 'a', 1, 1000, 50);
//                                      return true; }
//       void OnPrepareDraw() override { SetProgressMax(500); AllocBitmap(); }
//       void OnCalculate() override { ... m_source.pixels -> m_destination.pixels ...; ApplyBitmap(); }
//       void OnExitDraw() override { ReleaseBitmap(); }
//   };
//   PluginManager* CreatePluginManager() { return new MyManager; }
//
// Every operation tolerates a host that lacks the record, service or function it needs: the call is
// skipped and out-values keep the safe value they were given first (0, false, empty).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/HostApi.h"

// A point on the canvas as the host exchanges it.
struct Point {
    int64_t x = 0;  // canvas pixels
    int64_t y = 0;  // canvas pixels

    friend bool operator==(const Point&, const Point&) = default;
};

// One image exchanged with the host; all zero while not in use.
struct BitmapBlock {
    HostOffscreen offscreen = nullptr;  // the host image the block was taken from
    HostBitmap bitmap = nullptr;        // private copy made for the plug-in; released by ReleaseBitmap
    // Byte of red, green, blue, alpha (and a spare) within a pixel, as the host reports them: the first
    // three for channel order 3, the first four for order 4, else all 0.
    int64_t channelIndex[5] = {};
    int64_t channelOrder = 0;         // kHostChannelOrder... of the offscreen
    int64_t width = 0;                // pixels
    int64_t height = 0;               // pixels
    int64_t rowBytes = 0;             // bytes from one row to the next
    int64_t depth = 0;                // bytes per pixel
    unsigned char* pixels = nullptr;  // pixel (0,0); row r starts at pixels + r * rowBytes
};

// Longest module identifier OnGetGuid may write, terminating NUL included.
inline constexpr size_t kGuidBufferSize = 64;

class PluginManager {
public:
    PluginManager();
    PluginManager(const PluginManager&) = delete;
    PluginManager& operator=(const PluginManager&) = delete;

    // ---- Hooks, in the order of the virtual table ----
    // Writes the module identifier, NUL-terminated, into a buffer of kGuidBufferSize bytes.
    virtual void OnGetGuid(char* buffer) = 0;
    virtual void OnPrepareDraw() {}
    virtual void OnUpdateParameter() {}
    virtual void OnCalculate() {}
    // Not called by the run loop; kept for derived classes.
    virtual void OnEndDraw() {}
    virtual void OnExitDraw() {}
    // Releases the bitmaps, then the property object.
    virtual ~PluginManager();
    // A property item changed; true means the result must be redrawn.
    virtual bool OnPropertyChanged(int64_t itemKey, _Property* property);
    virtual void OnButtonPushed(int64_t itemKey);
    // Builds the panel; false fails filter initialise.
    virtual bool OnInitFilter() { return true; }
    virtual bool OnUninitFilter() { return true; }
    virtual bool OnUninitPlugin() { return true; }

    // ---- Registration and set-up ----
    // Tells the host the module identifier and that the module is a filter. False when the host has no
    // module-initialise record or string service, or reports a version below 1.
    bool RegisterPlugin(Server* server);
    // Keeps the server and the five handles taken from it for the operations below.
    void AttachServer(Server* server);
    // Creates the property object, hands it to the host and installs PropertyCallback.
    void InitFilter();
    void UninitFilter() {}
    void UninitPlugin() {}
    // True when the host gave a record suite and a string service.
    bool IsValid() const;
    void SetPluginName(int64_t categoryTextId, char categoryKey, int64_t nameTextId, char nameKey);
    // Bit i of mask (i = 0..5) lets the filter work on target kind kHostTargetKindRgbAlpha + i.
    void SetLayerMode(int mask);
    void EnablePreview(bool enable);
    void EnableDrawEmptyArea(bool enable);

    // ---- Filter run ----
    // Reports state to the host and returns its kHostProcessAnswer...; kHostProcessAnswerExit when the
    // host cannot be asked.
    int64_t GetCurrentHostState(ProcessState state);
    // The run loop: prepare, then passes of parameters and calculation while the host restarts, then
    // exit. Always true.
    bool ExecuteFilter();
    void SetProgressMax(int64_t total);
    void SetProgressValue(int64_t value);
    // Fills m_source, m_destination and m_selection from the host's offscreens.
    void AllocBitmap();
    // Writes m_destination back into the host's destination and reports the whole area as updated.
    void ApplyBitmap();
    // Releases the blocks' bitmaps and zeroes the blocks.
    void ReleaseBitmap();
    double GetDpi();
    void GetCanvasSize(int64_t& width, int64_t& height);
    // The main colour as red | green << 8 | blue << 16.
    uint32_t GetMainColor();

    // The callback InitFilter registers; userData is the manager.
    static void PropertyCallback(int64_t* result, _Property* property, int64_t itemKey, int64_t notification,
                                 void* userData);

    // ---- Property panel ----
    // Text of a string resource, up to its first 0 code unit; empty when the host has none.
    std::u16string GetResourceText(int64_t id);
    // Each Add* creates the item with the caption of string resource `key`; default and value are set
    // to the same starting value.
    void AddSlider(int64_t key, char accessKey, int64_t min, int64_t max, int64_t value);
    void AddDblSlider(int64_t key, char accessKey, double min, double max, double value);
    void AddCheckBox(int64_t key, char accessKey, bool value);
    // Rows from string resources, values 0 .. count - 1; default row 0.
    void AddComboBox(int64_t key, char accessKey, const int64_t* textIds, int count);
    // Rows from texts, values 0 .. rows.size() - 1; default row 0.
    void AddComboBox(int64_t key, char accessKey, const std::vector<std::u16string>& rows);
    void AddComboBoxItem(int64_t key, const std::u16string& text, int64_t value);
    void AddCanvas(int64_t key, char accessKey, PointDefault kind);

    // Each Update* reads the host's value: when it equals *field returns false and leaves *field,
    // else stores it and returns true.
    bool UpdateIntValue(int64_t key, int64_t* field);
    bool UpdateEnumValue(int64_t key, int64_t* field);
    bool UpdateDoubleValue(int64_t key, double* field);
    bool UpdateBoolValue(int64_t key, bool* field);
    bool UpdatePointValue(int64_t key, Point* field);

    void SetIntValue(int64_t key, int64_t value);
    void SetDoubleValue(int64_t key, double value);
    void SetBoolValue(int64_t key, bool value);
    void SetEnumValue(int64_t key, int64_t value);
    void SetPointValue(int64_t key, const Point& value);

    // Each Reset* reads the item's default into field and sets the item to it.
    void ResetIntValue(int64_t key, int64_t& field);
    void ResetDoubleValue(int64_t key, double& field);
    void ResetEnumValue(int64_t key, int64_t& field);
    void ResetBoolValue(int64_t key, bool& field);

    int64_t GetEnumValue(int64_t key);

protected:
    Server* m_server;                  // server of the current call
    HostObject m_hostObject;           // first argument of most host operations
    const HostRecordSuite* m_records;  // head of the server record
    const HostStringService* m_stringService;
    const HostPropertyService* m_propertyService;            // boolean, integer and decimal items
    const HostPointEnumPropertyService* m_pointEnumService;  // point and enumeration items
    _Property* m_property;                                   // created at filter initialise; null until then
    int64_t m_runState;                                      // 257 from construction; not read here
    BitmapBlock m_source;
    BitmapBlock m_destination;
    BitmapBlock m_selection;  // all zero when the host reports no selection

private:
    const HostModuleInitRecord* ModuleInitRecord() const;
    const HostFilterInitRecord* FilterInitRecord() const;
    const HostFilterRunRecord* FilterRunRecord() const;
    const HostOffscreenService* OffscreenService() const;
    const HostBitmapService* BitmapService() const;
    // A host string from string resource id; null when the host cannot make one.
    HostString CreateResourceString(int64_t id);
    void ReleaseString(HostString string);
    // Adds an item captioned by the string resource `key`; returns the caption for the caller to release.
    HostString AddItem(int64_t key, int64_t valueKind, int64_t inputKind, char accessKey);
    void AddEnumRow(int64_t key, int64_t value, HostString text);
    void TakeBlock(BitmapBlock& block, HostOffscreen offscreen);
};

// Makes the module's one manager; defined once per module by the concrete filter.
PluginManager* CreatePluginManager();
