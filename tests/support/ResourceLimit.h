#pragma once

#include <QtGlobal>

#include <sys/resource.h>

/// Narrows what this process may use, as long as it lives.
class ResourceLimit
{
public:
    ResourceLimit(__rlimit_resource resource, rlim_t limit) : m_resource(resource)
    {
        if (getrlimit(resource, &m_former) != 0) {
            qFatal("no resource limit");
        }
        const rlimit narrow{limit, m_former.rlim_max};
        if (setrlimit(resource, &narrow) != 0) {
            qFatal("resource limit refused");
        }
    }
    ~ResourceLimit() { setrlimit(m_resource, &m_former); }

    ResourceLimit(const ResourceLimit &) = delete;
    ResourceLimit &operator=(const ResourceLimit &) = delete;

private:
    __rlimit_resource m_resource;
    rlimit m_former{};
};
