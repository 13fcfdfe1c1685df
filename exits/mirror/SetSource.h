#pragma once

#include "mirror/DomainStatus.h"
#include "mirror/MirrorDomain.h"
#include "mirror/RequestTaker.h"
#include "mirror/SetSender.h"
#include "mirror/SilenceWatch.h"
#include "mirror/SlotLayout.h"
#include "region/RegionFollower.h"

#include <QObject>
#include <QTimer>

#include <memory>

/// Sends the newest set of one region to whoever mirrors it, and how the region is when there is none.
///
/// Reads without ever taking the lock, so that its publisher never waits; a set that finds no room on the way is
/// followed by a newer one. Says the newest again each second, so that a receiver knows this program to
/// be at work, and not only the engine in it.
class SetSource : public QObject
{
    Q_OBJECT

public:
    struct Pace
    {
        int leastInterval; ///< milliseconds from one set to the next
        int silentAfter; ///< milliseconds without a set until the publisher counts as silent; 0: never
        int lease;       ///< milliseconds
    };

    /// @p domain has to live longer. @p use: of a region that is not written into. @p commands: into which
    /// leaves mirrors may have something written; empty: into none. Throws a Refusal.
    SetSource(const QString &path, const MirrorDomain &domain, const Pace &pace,
              RegionFollower::Use use, const UrlChoice &commands);
    ~SetSource() override;

    const RegionFollower &region() const { return m_region; }
    /// Which is at work while the region is up.
    const SetSender &sender() const { return m_sender; }
    /// Adds what it sent last.
    void tell(DomainStatus &status) const;
    /// From now on; see Pace.
    void setSilentAfter(int milliseconds);

Q_SIGNALS:
    /// The region is there, and its sets cannot be sent; the log says why. Ends the program with that code.
    void failed(int code);

private:
    void readLayout();
    void offerDescription();
    void handleUp(bool isUp);
    void begin();
    void end();
    void handleRevival();
    void listenForSilence();
    void handleSilence();

    RegionFollower m_region;
    Pace m_pace;
    SlotLayout m_layout;
    QByteArray m_identity;
    SetSender m_sender;
    dds_entity_t m_layoutWriter;
    dds_entity_t m_descriptionWriter;
    SilenceWatch m_silence;
    QTimer m_silenceLooks;
    std::unique_ptr<RequestTaker> m_requests; ///< null: none is taken
};
