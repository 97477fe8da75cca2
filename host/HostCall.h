// Small helpers for calling the host safely: a missing record, service or function is skipped, and
// host strings are released on every path.
#pragma once

#include <utility>

#include "host/HostApi.h"

// Calls table->*op(args...) when the host offers both the table and the operation. The host's result
// is not looked at: callers pre-set every out-parameter to a safe value.
template <typename Table, typename Op, typename... Args>
void CallHost(const Table* table, Op Table::*op, Args&&... args) {
    if (table && table->*op) (table->*op)(std::forward<Args>(args)...);
}

// Owns one host string and releases it when it goes out of scope.
class ScopedHostString {
public:
    ScopedHostString(const HostStringService* service, HostString string)
        : m_service(service), m_string(string) {}
    ScopedHostString(const ScopedHostString&) = delete;
    ScopedHostString& operator=(const ScopedHostString&) = delete;
    ~ScopedHostString() { Release(); }

    HostString Get() const { return m_string; }
    void Release() {
        if (m_string) CallHost(m_service, &HostStringService::release, m_string);
        m_string = nullptr;
    }

private:
    const HostStringService* m_service;
    HostString m_string;
};
