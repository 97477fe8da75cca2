// The property panel operations of PluginManager: each is a thin wrapper of a few property-service
// calls on m_property. Before filter initialise there is no property object, and every operation is
// then a no-op.
#include <algorithm>

#include "host/HostCall.h"
#include "host/PluginManager.h"

std::u16string PluginManager::GetResourceText(int64_t id) {
    ScopedHostString string(m_stringService, CreateResourceString(id));
    if (!string.Get()) return {};
    const char16_t* chars = nullptr;
    int64_t length = 0;
    CallHost(m_stringService, &HostStringService::getUtf16Chars, string.Get(), &chars);
    CallHost(m_stringService, &HostStringService::getUtf16Length, string.Get(), &length);
    if (!chars || length <= 0) return {};
    return std::u16string(chars, std::find(chars, chars + length, u'\0'));
}

HostString PluginManager::AddItem(int64_t key, int64_t valueKind, int64_t inputKind, char accessKey) {
    HostString caption = CreateResourceString(key);
    CallHost(m_propertyService, &HostPropertyService::addItem, m_property, key, valueKind,
             int64_t{kHostItemDisplayDefault}, inputKind, caption, accessKey);
    return caption;
}

void PluginManager::AddEnumRow(int64_t key, int64_t value, HostString text) {
    CallHost(m_pointEnumService, &HostPointEnumPropertyService::addEnumerationItem, m_property, key, value,
             text, '\0');
}

void PluginManager::AddSlider(int64_t key, char accessKey, int64_t min, int64_t max, int64_t value) {
    if (!m_property) return;
    ScopedHostString caption(m_stringService,
                             AddItem(key, kHostValueKindInteger, kHostItemInputDefault, accessKey));
    const HostPropertyService* service = m_propertyService;
    CallHost(service, &HostPropertyService::setIntegerMinimum, m_property, key, min);
    CallHost(service, &HostPropertyService::setIntegerMaximum, m_property, key, max);
    CallHost(service, &HostPropertyService::setIntegerDefault, m_property, key, value);
    CallHost(service, &HostPropertyService::setIntegerValue, m_property, key, value);
}

void PluginManager::AddDblSlider(int64_t key, char accessKey, double min, double max, double value) {
    if (!m_property) return;
    ScopedHostString caption(m_stringService,
                             AddItem(key, kHostValueKindDecimal, kHostItemInputDefault, accessKey));
    const HostPropertyService* service = m_propertyService;
    CallHost(service, &HostPropertyService::setDecimalMinimum, m_property, key, min);
    CallHost(service, &HostPropertyService::setDecimalMaximum, m_property, key, max);
    CallHost(service, &HostPropertyService::setDecimalDefault, m_property, key, value);
    CallHost(service, &HostPropertyService::setDecimalValue, m_property, key, value);
}

void PluginManager::AddCheckBox(int64_t key, char accessKey, bool value) {
    if (!m_property) return;
    ScopedHostString caption(m_stringService,
                             AddItem(key, kHostValueKindBoolean, kHostItemInputDefault, accessKey));
    CallHost(m_propertyService, &HostPropertyService::setBooleanDefault, m_property, key, HostBool{value});
    CallHost(m_propertyService, &HostPropertyService::setBooleanValue, m_property, key, HostBool{value});
}

void PluginManager::AddComboBox(int64_t key, char accessKey, const int64_t* textIds, int count) {
    if (!m_property) return;
    ReleaseString(AddItem(key, kHostValueKindEnumeration, kHostItemInputDefault, accessKey));
    for (int i = 0; textIds && i < count; ++i) {
        ScopedHostString row(m_stringService, CreateResourceString(textIds[i]));
        AddEnumRow(key, i, row.Get());
    }
    CallHost(m_pointEnumService, &HostPointEnumPropertyService::setEnumerationDefault, m_property, key,
             int64_t{0});
}

void PluginManager::AddComboBox(int64_t key, char accessKey, const std::vector<std::u16string>& rows) {
    if (!m_property) return;
    ScopedHostString caption(m_stringService,
                             AddItem(key, kHostValueKindEnumeration, kHostItemInputDefault, accessKey));
    int64_t value = 0;
    for (const std::u16string& text : rows) {
        HostString string = nullptr;
        CallHost(m_stringService, &HostStringService::createWithUtf16, &string, text.data(),
                 static_cast<int64_t>(text.size()));
        ScopedHostString row(m_stringService, string);
        AddEnumRow(key, value++, row.Get());
    }
    CallHost(m_pointEnumService, &HostPointEnumPropertyService::setEnumerationDefault, m_property, key,
             int64_t{0});
}

void PluginManager::AddComboBoxItem(int64_t key, const std::u16string& text, int64_t value) {
    if (!m_property) return;
    HostString string = nullptr;
    CallHost(m_stringService, &HostStringService::createWithUtf16, &string, text.data(),
             static_cast<int64_t>(text.size()));
    ScopedHostString row(m_stringService, string);
    AddEnumRow(key, value, row.Get());
}

void PluginManager::AddCanvas(int64_t key, char accessKey, PointDefault kind) {
    if (!m_property) return;
    ScopedHostString caption(m_stringService,
                             AddItem(key, kHostValueKindPoint, kHostItemInputCanvas, accessKey));
    CallHost(m_pointEnumService, &HostPointEnumPropertyService::setPointDefaultKind, m_property, key, kind);
    CallHost(m_pointEnumService, &HostPointEnumPropertyService::setPointLimitKind, m_property, key,
             int64_t{kHostPointLimitCanvas});
}

// The Update* readers start from the field's own value, so a host that cannot answer reads as
// "unchanged".

bool PluginManager::UpdateIntValue(int64_t key, int64_t* field) {
    if (!m_property || !field) return false;
    int64_t value = *field;
    CallHost(m_propertyService, &HostPropertyService::getIntegerValue, m_property, key, &value);
    if (value == *field) return false;
    *field = value;
    return true;
}

bool PluginManager::UpdateEnumValue(int64_t key, int64_t* field) {
    if (!m_property || !field) return false;
    int64_t value = *field;
    CallHost(m_pointEnumService, &HostPointEnumPropertyService::getEnumerationValue, m_property, key, &value);
    if (value == *field) return false;
    *field = value;
    return true;
}

bool PluginManager::UpdateDoubleValue(int64_t key, double* field) {
    if (!m_property || !field) return false;
    double value = *field;
    CallHost(m_propertyService, &HostPropertyService::getDecimalValue, m_property, key, &value);
    if (value == *field) return false;
    *field = value;
    return true;
}

bool PluginManager::UpdateBoolValue(int64_t key, bool* field) {
    if (!m_property || !field) return false;
    HostBool value = *field;
    CallHost(m_propertyService, &HostPropertyService::getBooleanValue, m_property, key, &value);
    if ((value != 0) == *field) return false;
    *field = value != 0;
    return true;
}

bool PluginManager::UpdatePointValue(int64_t key, Point* field) {
    if (!m_property || !field) return false;
    HostPoint value{field->x, field->y};
    CallHost(m_pointEnumService, &HostPointEnumPropertyService::getPointValue, m_property, key, &value);
    if (value.x == field->x && value.y == field->y) return false;
    field->x = value.x;
    field->y = value.y;
    return true;
}

void PluginManager::SetIntValue(int64_t key, int64_t value) {
    if (m_property)
        CallHost(m_propertyService, &HostPropertyService::setIntegerValue, m_property, key, value);
}

void PluginManager::SetDoubleValue(int64_t key, double value) {
    if (m_property)
        CallHost(m_propertyService, &HostPropertyService::setDecimalValue, m_property, key, value);
}

void PluginManager::SetBoolValue(int64_t key, bool value) {
    if (m_property)
        CallHost(m_propertyService, &HostPropertyService::setBooleanValue, m_property, key, HostBool{value});
}

void PluginManager::SetEnumValue(int64_t key, int64_t value) {
    if (m_property)
        CallHost(m_pointEnumService, &HostPointEnumPropertyService::setEnumerationValue, m_property, key,
                 value);
}

void PluginManager::SetPointValue(int64_t key, const Point& value) {
    if (!m_property) return;
    const HostPoint point{value.x, value.y};
    CallHost(m_pointEnumService, &HostPointEnumPropertyService::setPointValue, m_property, key, &point);
}

void PluginManager::ResetIntValue(int64_t key, int64_t& field) {
    if (!m_property) return;
    CallHost(m_propertyService, &HostPropertyService::getIntegerDefault, m_property, key, &field);
    SetIntValue(key, field);
}

void PluginManager::ResetDoubleValue(int64_t key, double& field) {
    if (!m_property) return;
    CallHost(m_propertyService, &HostPropertyService::getDecimalDefault, m_property, key, &field);
    SetDoubleValue(key, field);
}

void PluginManager::ResetEnumValue(int64_t key, int64_t& field) {
    if (!m_property) return;
    CallHost(m_pointEnumService, &HostPointEnumPropertyService::getEnumerationDefault, m_property, key,
             &field);
    SetEnumValue(key, field);
}

void PluginManager::ResetBoolValue(int64_t key, bool& field) {
    if (!m_property) return;
    HostBool value = field;
    CallHost(m_propertyService, &HostPropertyService::getBooleanDefault, m_property, key, &value);
    field = value != 0;
    SetBoolValue(key, field);
}

int64_t PluginManager::GetEnumValue(int64_t key) {
    int64_t value = 0;
    if (m_property)
        CallHost(m_pointEnumService, &HostPointEnumPropertyService::getEnumerationValue, m_property, key,
                 &value);
    return value;
}
