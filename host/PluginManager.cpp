#include "host/PluginManager.h"

#include <cstring>

#include "host/HostCall.h"

PluginManager::PluginManager()
    : m_server(nullptr),
      m_hostObject(nullptr),
      m_records(nullptr),
      m_stringService(nullptr),
      m_propertyService(nullptr),
      m_pointEnumService(nullptr),
      m_property(nullptr),
      m_runState(kHostProcessAnswerContinue),
      m_source{},
      m_destination{},
      m_selection{} {}

PluginManager::~PluginManager() {
    ReleaseBitmap();
    if (m_property) CallHost(m_propertyService, &HostPropertyService::release, m_property);
}

bool PluginManager::OnPropertyChanged(int64_t, _Property*) {
    return false;
}

void PluginManager::OnButtonPushed(int64_t) {}

// ---- Access to the host's tables ----

const HostModuleInitRecord* PluginManager::ModuleInitRecord() const {
    return m_records ? m_records->moduleInitRecord : nullptr;
}

const HostFilterInitRecord* PluginManager::FilterInitRecord() const {
    return m_records ? m_records->filterInitRecord : nullptr;
}

const HostFilterRunRecord* PluginManager::FilterRunRecord() const {
    return m_records ? m_records->filterRunRecord : nullptr;
}

const HostOffscreenService* PluginManager::OffscreenService() const {
    return m_server && m_server->serviceSuite ? m_server->serviceSuite->offscreenService : nullptr;
}

const HostBitmapService* PluginManager::BitmapService() const {
    return m_server && m_server->serviceSuite ? m_server->serviceSuite->bitmapService : nullptr;
}

HostString PluginManager::CreateResourceString(int64_t id) {
    HostString string = nullptr;
    CallHost(m_stringService, &HostStringService::createWithResourceId, &string, id, m_hostObject);
    return string;
}

void PluginManager::ReleaseString(HostString string) {
    if (string) CallHost(m_stringService, &HostStringService::release, string);
}

// ---- Registration and set-up ----

bool PluginManager::RegisterPlugin(Server* server) {
    if (!server || !server->recordSuite || !server->serviceSuite) return false;
    const HostModuleInitRecord* init = server->recordSuite->moduleInitRecord;
    const HostStringService* strings = server->serviceSuite->stringService;
    if (!init || !strings) return false;

    int64_t version = 0;
    CallHost(init, &HostModuleInitRecord::getHostVersion, server->hostObject, &version);
    if (version < 1) return false;

    char guid[kGuidBufferSize] = {};
    OnGetGuid(guid);
    guid[kGuidBufferSize - 1] = '\0';  // an overlong identifier is cut rather than read past the buffer
    HostString id = nullptr;
    CallHost(strings, &HostStringService::createWithBytes, &id, guid,
             static_cast<int64_t>(std::strlen(guid)));
    ScopedHostString idString(strings, id);
    // Handles the host could not make are not handed back to it.
    if (id) CallHost(init, &HostModuleInitRecord::setModuleId, server->hostObject, id);
    CallHost(init, &HostModuleInitRecord::setModuleKind, server->hostObject, int64_t{kHostModuleKindFilter});
    return true;
}

void PluginManager::AttachServer(Server* server) {
    m_server = server;
    m_hostObject = server ? server->hostObject : nullptr;
    m_records = server ? server->recordSuite : nullptr;
    const HostServiceSuite* services = server ? server->serviceSuite : nullptr;
    m_stringService = services ? services->stringService : nullptr;
    m_propertyService = services ? services->propertyService : nullptr;
    m_pointEnumService = services ? services->pointEnumPropertyService : nullptr;
}

void PluginManager::InitFilter() {
    // Opening the filter a second time replaces the panel; the old property object is the host's to
    // get back.
    if (m_property) CallHost(m_propertyService, &HostPropertyService::release, m_property);
    m_property = nullptr;
    CallHost(m_propertyService, &HostPropertyService::create, m_hostObject, &m_property);
    if (!m_property) return;  // no panel: nothing to hand over and nothing to notify about
    const HostFilterInitRecord* init = FilterInitRecord();
    CallHost(init, &HostFilterInitRecord::setProperty, m_hostObject, m_property);
    CallHost(init, &HostFilterInitRecord::setPropertyCallback, m_hostObject, &PluginManager::PropertyCallback,
             static_cast<void*>(this));
}

bool PluginManager::IsValid() const {
    return m_records && m_stringService;
}

void PluginManager::SetPluginName(int64_t categoryTextId, char categoryKey, int64_t nameTextId,
                                  char nameKey) {
    ScopedHostString category(m_stringService, CreateResourceString(categoryTextId));
    ScopedHostString name(m_stringService, CreateResourceString(nameTextId));
    const HostFilterInitRecord* init = FilterInitRecord();
    if (category.Get())
        CallHost(init, &HostFilterInitRecord::setFilterCategoryName, m_hostObject, category.Get(),
                 categoryKey);
    if (name.Get()) CallHost(init, &HostFilterInitRecord::setFilterName, m_hostObject, name.Get(), nameKey);
}

void PluginManager::SetLayerMode(int mask) {
    int64_t kinds[kHostTargetKindCount] = {};
    int64_t count = 0;
    for (int bit = 0; bit < kHostTargetKindCount; ++bit) {
        if (mask & (1 << bit)) kinds[count++] = kHostTargetKindRgbAlpha + bit;
    }
    CallHost(FilterInitRecord(), &HostFilterInitRecord::setTargetKinds, m_hostObject,
             static_cast<const int64_t*>(kinds), count);
}

void PluginManager::EnablePreview(bool enable) {
    CallHost(FilterInitRecord(), &HostFilterInitRecord::setCanPreview, m_hostObject, HostBool{enable});
}

void PluginManager::EnableDrawEmptyArea(bool enable) {
    CallHost(FilterInitRecord(), &HostFilterInitRecord::setUseEmptyArea, m_hostObject, HostBool{enable});
}

// ---- Filter run ----

int64_t PluginManager::GetCurrentHostState(ProcessState state) {
    // A host that cannot be asked cannot take a result either: treat it as told to stop.
    int64_t answer = kHostProcessAnswerExit;
    CallHost(FilterRunRecord(), &HostFilterRunRecord::process, m_hostObject, state, &answer);
    return answer;
}

bool PluginManager::ExecuteFilter() {
    OnPrepareDraw();
    for (;;) {
        if (GetCurrentHostState(kHostProcessStateStart) == kHostProcessAnswerExit) break;
        OnUpdateParameter();
        OnCalculate();
        if (GetCurrentHostState(kHostProcessStateEnd) != kHostProcessAnswerRestart) break;
    }
    OnExitDraw();
    return true;
}

void PluginManager::SetProgressMax(int64_t total) {
    CallHost(FilterRunRecord(), &HostFilterRunRecord::setProgressTotal, m_hostObject, total);
}

void PluginManager::SetProgressValue(int64_t value) {
    CallHost(FilterRunRecord(), &HostFilterRunRecord::setProgressValue, m_hostObject, value);
}

void PluginManager::TakeBlock(BitmapBlock& block, HostOffscreen offscreen) {
    block = {};
    const HostOffscreenService* offscreens = OffscreenService();
    const HostBitmapService* bitmaps = BitmapService();
    if (!offscreen || !offscreens || !bitmaps) return;

    int64_t width = 0;
    int64_t height = 0;
    int64_t order = 0;
    CallHost(offscreens, &HostOffscreenService::getWidth, offscreen, &width);
    CallHost(offscreens, &HostOffscreenService::getHeight, offscreen, &height);
    CallHost(offscreens, &HostOffscreenService::getChannelOrder, offscreen, &order);
    // An empty image has nothing to draw on; the block stays unused rather than holding an empty bitmap.
    if (width <= 0 || height <= 0) return;

    int64_t index[5] = {};
    int64_t channelCode = kHostChannelCodeAlpha;
    switch (order) {
        case kHostChannelOrderGrayAlpha:
        case kHostChannelOrderMask:
            channelCode = kHostChannelCodeGrayAlpha;
            break;
        case kHostChannelOrderRgbAlpha:
            channelCode = kHostChannelCodeRgbAlpha;
            CallHost(offscreens, &HostOffscreenService::getRgbChannelIndex, offscreen, &index[0], &index[1],
                     &index[2]);
            break;
        case kHostChannelOrderRgba:
            channelCode = kHostChannelCodeRgba;
            CallHost(offscreens, &HostOffscreenService::getRgbaChannelIndex, offscreen, &index[0], &index[1],
                     &index[2], &index[3]);
            break;
        default:
            break;
    }

    HostBitmap bitmap = nullptr;
    CallHost(bitmaps, &HostBitmapService::create, &bitmap, width, height, channelCode,
             int64_t{kHostScanlineTopDown});
    if (!bitmap) return;

    block.offscreen = offscreen;
    block.bitmap = bitmap;
    std::memcpy(block.channelIndex, index, sizeof index);
    block.channelOrder = order;
    block.width = width;
    block.height = height;
    CallHost(bitmaps, &HostBitmapService::getRowBytes, bitmap, &block.rowBytes);
    CallHost(bitmaps, &HostBitmapService::getDepth, bitmap, &block.depth);
    const HostPoint origin{0, 0};
    CallHost(offscreens, &HostOffscreenService::copyToBitmap, bitmap, &origin, offscreen, &origin, width,
             height, int64_t{kHostCopyModeReplace});
    void* address = nullptr;
    CallHost(bitmaps, &HostBitmapService::getAddress, bitmap, &origin, &address);
    block.pixels = static_cast<unsigned char*>(address);
}

void PluginManager::AllocBitmap() {
    // Bitmaps of an earlier run that was never released would otherwise be lost to the host.
    ReleaseBitmap();
    const HostFilterRunRecord* run = FilterRunRecord();

    HostOffscreen source = nullptr;
    CallHost(run, &HostFilterRunRecord::getSourceOffscreen, m_hostObject, &source);
    TakeBlock(m_source, source);

    HostOffscreen destination = nullptr;
    CallHost(run, &HostFilterRunRecord::getDestinationOffscreen, m_hostObject, &destination);
    TakeBlock(m_destination, destination);

    HostBool present = 0;
    CallHost(run, &HostFilterRunRecord::hasSelection, m_hostObject, &present);
    if (!present) return;
    HostOffscreen selection = nullptr;
    CallHost(run, &HostFilterRunRecord::getSelectionOffscreen, m_hostObject, &selection);
    TakeBlock(m_selection, selection);
}

void PluginManager::ApplyBitmap() {
    if (!m_destination.bitmap) return;
    const HostPoint origin{0, 0};
    CallHost(OffscreenService(), &HostOffscreenService::copyFromBitmap, m_destination.bitmap, &origin,
             m_destination.offscreen, &origin, m_destination.width, m_destination.height,
             int64_t{kHostCopyModeReplace});
    const HostRect area{0, 0, m_destination.width, m_destination.height};
    CallHost(FilterRunRecord(), &HostFilterRunRecord::updateDestinationArea, m_hostObject, &area);
}

void PluginManager::ReleaseBitmap() {
    for (BitmapBlock* block : {&m_source, &m_destination, &m_selection}) {
        if (block->bitmap) CallHost(BitmapService(), &HostBitmapService::release, block->bitmap);
        *block = {};
    }
}

double PluginManager::GetDpi() {
    double dpi = 0.0;
    CallHost(FilterRunRecord(), &HostFilterRunRecord::getResolution, m_hostObject, &dpi);
    return dpi;
}

void PluginManager::GetCanvasSize(int64_t& width, int64_t& height) {
    width = 0;
    height = 0;
    CallHost(FilterRunRecord(), &HostFilterRunRecord::getCanvasWidth, m_hostObject, &width);
    CallHost(FilterRunRecord(), &HostFilterRunRecord::getCanvasHeight, m_hostObject, &height);
}

uint32_t PluginManager::GetMainColor() {
    HostColor color{};
    uint8_t alpha = 0;
    CallHost(FilterRunRecord(), &HostFilterRunRecord::getMainColor, m_hostObject, &color, &alpha);
    return uint32_t{color.red} | uint32_t{color.green} << 8 | uint32_t{color.blue} << 16;
}

void PluginManager::PropertyCallback(int64_t* result, _Property* property, int64_t itemKey,
                                     int64_t notification, void* userData) {
    int64_t ignored = 0;
    if (!result) result = &ignored;
    *result = kHostPropertyUnchanged;
    auto* manager = static_cast<PluginManager*>(userData);
    if (!manager || !manager->IsValid()) return;
    if (notification == kHostNotifyValueChanged) {
        if (manager->OnPropertyChanged(itemKey, property)) *result = kHostPropertyModified;
    } else if (notification == kHostNotifyButtonPushed) {
        manager->OnButtonPushed(itemKey);
    }
}
