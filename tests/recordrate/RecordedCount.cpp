#include "RecordedCount.h"

#include "CountedPlant.h"
#include "recordings/RecordingReader.h"

#include <cstring>

namespace {

/// What a set of a number has to hold, as it lies in a recording.
class ExpectedImage
{
public:
    ExpectedImage(const RecordingReader &reader, const RateOptions &options)
        : m_places(static_cast<std::size_t>(options.leaves))
        , m_image(static_cast<int>(reader.layout().size()), '\0')
        , m_changing(options.changed())
    {
        for (int i = 0; i < reader.head().values.size(); ++i) {
            const auto leaf = static_cast<std::size_t>(
                CountedPlant::leafAt(reader.head().values[i].url));
            m_places.at(leaf) = static_cast<std::size_t>(
                reader.layout().places()[static_cast<std::size_t>(i)].offset);
        }
    }

    void advanceTo(quint64 number)
    {
        while (m_number < number) {
            ++m_number;
            const auto value = static_cast<double>(m_number);
            std::size_t leaf = static_cast<std::size_t>(CountedPlant::firstChanged(
                m_number, static_cast<int>(m_places.size()), m_changing));
            for (int i = 0; i < m_changing; ++i) {
                std::memcpy(m_image.data() + m_places[leaf], &value, sizeof value);
                leaf = leaf + 1 == m_places.size() ? 0 : leaf + 1;
            }
        }
    }

    const QByteArray &image() const { return m_image; }

private:
    std::vector<std::size_t> m_places;
    QByteArray m_image;
    int m_changing;
    quint64 m_number = 0;
};

} // namespace

RecordedCount RecordedCount::of(const QString &file, const RateOptions &options, quint64 first)
{
    RecordingReader reader(file);
    RecordedCount count;
    if (reader.head().values.size() != options.leaves) {
        count.problem = QStringLiteral("%1 values").arg(reader.head().values.size());
        return count;
    }
    ExpectedImage expected(reader, options);
    RecordedSet set;
    quint64 generationOfFirst = 0;
    while (reader.next(set)) {
        if (count.sets == 0) {
            generationOfFirst = set.facts.generation;
        }
        expected.advanceTo(first + set.facts.generation - generationOfFirst);
        count.notWhole += set.image == expected.image() ? 0 : 1;
        count.dropped += set.facts.dropped;
        ++count.sets;
    }
    count.problem = reader.problem();
    return count;
}
