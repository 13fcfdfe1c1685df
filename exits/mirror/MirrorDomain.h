#pragma once

#include "mirror/DomainSettings.h"

#include <QString>
#include <QtGlobal>

#include <initializer_list>

#include <dds/dds.h>

/// The place where sources and receivers meet, and this program's part in it. One at a time.
///
/// Owns the entities of the engine, and with them every writer and reader that was made of it. Its threads
/// are those of the engine: make it after the Service, so that they leave the signals alone.
class MirrorDomain
{
public:
    /// Throws a Refusal with what the engine says.
    explicit MirrorDomain(const DomainSettings &settings);
    ~MirrorDomain();
    Q_DISABLE_COPY(MirrorDomain)

    /// Writers of sets and layouts. A source that says nothing for @p lease milliseconds counts as gone.
    dds_entity_t makeSetWriter(int lease) const;
    dds_entity_t makeLayoutWriter() const;
    /// @p listener may be null and stays the caller's.
    dds_entity_t makeSetReader(const dds_listener_t *listener) const;
    dds_entity_t makeLayoutReader() const;
    dds_entity_t makeReportWriter() const;
    dds_entity_t makeReportReader() const;
    dds_entity_t makeDescriptionWriter() const;
    dds_entity_t makeDescriptionReader() const;
    /// What mirrors write, and what becomes of it. Each is asked for only where it is used: who may neither
    /// write nor read it takes part all the same. Throws a Refusal.
    dds_entity_t makeRequestWriter() const;
    dds_entity_t makeRequestReader(const dds_listener_t *listener) const;
    dds_entity_t makeAnswerWriter() const;
    dds_entity_t makeAnswerReader(const dds_listener_t *listener) const;
    /// The addresses of the program that wrote something which @p reader has read, as it says itself; empty if
    /// it has gone.
    QString addressOf(dds_entity_t reader, dds_instance_handle_t publisher) const;
    /// Something to wait with until one of @p readers has data.
    dds_entity_t makeWaitset(std::initializer_list<dds_entity_t> readers) const;

private:
    dds_entity_t makeTopic(const dds_topic_descriptor_t &type, const char *name) const;
    dds_entity_t makeRequestTopic() const;
    dds_entity_t makeAnswerTopic() const;

    dds_entity_t m_domain = 0;
    dds_entity_t m_participant = 0;
    dds_entity_t m_sets = 0;
    dds_entity_t m_layouts = 0;
    dds_entity_t m_reports = 0;
    dds_entity_t m_descriptions = 0;
    dds_entity_t m_participants = 0; ///< reader of who is there
};
