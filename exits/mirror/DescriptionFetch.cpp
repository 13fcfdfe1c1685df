#include "mirror/DescriptionFetch.h"

#include "mirror/DescriptionBundle.h"
#include "mirror/SampleFields.h"
#include "service/Refusal.h"
#include "service/ServiceLog.h"

#include <QDeadlineTimer>

#include <optional>

#include <MirrorTopics.h>

namespace {

/// Milliseconds between two looks at the clock.
constexpr int longestWait = 1000;

DescriptionBundle bundleOf(const tessel_mirror_SourceDescription &sample)
{
    DescriptionBundle bundle;
    bundle.isFolder = sample.is_folder;
    // One too many tells as well that they are.
    for (uint32_t i = 0; i < sample.files._length && i <= DescriptionBundle::sm_mostFiles; ++i) {
        const auto &file = sample.files._buffer[i];
        bundle.files.append(
            {QString::fromUtf8(file.name),
             QByteArray(
                 reinterpret_cast<const char *>(file.content._buffer),
                 int(qMin<uint32_t>(file.content._length, DescriptionBundle::sm_mostBytes + 1U)))});
    }
    return bundle;
}

/// Of one sample of @p key that can be written; the others are told of.
std::optional<DescriptionBundle> take(dds_entity_t reader, const QString &key)
{
    std::optional<DescriptionBundle> taken;
    void *samples[1] = {};
    dds_sample_info_t info;
    while (!taken && dds_take(reader, samples, &info, 1, 1) == 1) {
        const auto &sample = *static_cast<const tessel_mirror_SourceDescription *>(samples[0]);
        if (info.valid_data && sampleText(sample.region) == key) {
            DescriptionBundle bundle = bundleOf(sample);
            const QString problem = bundle.problem();
            if (problem.isEmpty()) {
                taken = std::move(bundle);
            } else {
                ServiceLog::warning(
                    QStringLiteral("the description of region '%1' from %2 was refused: %3")
                        .arg(key, sampleText(sample.host), problem));
            }
        }
        dds_return_loan(reader, samples, 1);
    }
    return taken;
}

/// Empty if none came in time.
std::optional<DescriptionBundle> await(const MirrorDomain &domain, const QString &key,
                                       int milliseconds)
{
    const dds_entity_t reader = domain.makeDescriptionReader();
    const dds_entity_t waitset = domain.makeWaitset({reader});
    std::optional<DescriptionBundle> bundle;
    QDeadlineTimer end(milliseconds > 0 ? QDeadlineTimer(milliseconds)
                                        : QDeadlineTimer(QDeadlineTimer::Forever));
    while (!bundle && !end.hasExpired()) {
        const qint64 rest = end.isForever() ? longestWait : end.remainingTime();
        dds_waitset_wait(waitset, nullptr, 0, DDS_MSECS(qBound<qint64>(1, rest, longestWait)));
        bundle = take(reader, key);
    }
    dds_delete(waitset);
    dds_delete(reader);
    return bundle;
}

} // namespace

QString fetchDescription(const MirrorDomain &domain, const QString &key, const QString &folder,
                         int milliseconds, const HeldEnd &held)
{
    const auto bundle = [&] {
        const HeldEnd::Pause pause(held);
        return await(domain, key, milliseconds);
    }();
    if (!bundle) {
        throw Refusal{ExitCode::NotFound,
                      QStringLiteral("no source of region '%1' sent its description within %2 ms; "
                                     "'tessel mirror status' shows the sources")
                          .arg(key, QString::number(milliseconds))};
    }
    return bundle->write(folder, key);
}
