#pragma once

#include "mirror/DomainStatus.h"
#include "mirror/MirrorDomain.h"

/// Hears what sources and receivers of a domain say of themselves.
class StatusReaders
{
public:
    /// What sources say comes with their sets, which have to travel here for that.
    enum class Of { All, Receivers };

    /// @p domain has to live longer. Throws a Refusal.
    StatusReaders(const MirrorDomain &domain, Of of);
    ~StatusReaders();
    Q_DISABLE_COPY(StatusReaders)

    /// What was said since it was called last.
    void take(DomainStatus &status) const;

    /// To be waited for; 0 where sources are not heard.
    dds_entity_t sets() const { return m_sets; }
    dds_entity_t reports() const { return m_reports; }

private:
    dds_entity_t m_sets;
    dds_entity_t m_reports;
};

/// What was seen in so many milliseconds.
DomainStatus lookAround(const MirrorDomain &domain, int milliseconds);
