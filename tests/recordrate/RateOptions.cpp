#include "RateOptions.h"

namespace {

constexpr int mostLeaves = 100000;
constexpr double mostRate = 100000;
constexpr double mostSeconds = 24.0 * 3600;

/// Whether @p word is a number above 0 and not above @p most.
template <class Number>
bool take(const QString &word, Number most, Number &number)
{
    bool isNumber = false;
    const double given = word.toDouble(&isNumber);
    const auto fitting = static_cast<Number>(given);
    if (!isNumber || !(given > 0) || !(given <= static_cast<double>(most))
        || static_cast<double>(fitting) != given) {
        return false;
    }
    number = fitting;
    return true;
}

bool takePlant(const QString &word, RateOptions::Plant &plant)
{
    plant = word == QLatin1String("torn-set")        ? RateOptions::Plant::TornSet
            : word == QLatin1String("uncounted-set") ? RateOptions::Plant::UncountedSet
                                                     : RateOptions::Plant::None;
    return plant != RateOptions::Plant::None;
}

bool takeOption(RateOptions &options, const QString &name, const QString &word)
{
    if (name == QLatin1String("--leaves")) {
        return take(word, mostLeaves, options.leaves);
    }
    if (name == QLatin1String("--changing")) {
        return take(word, mostLeaves, options.changing);
    }
    if (name == QLatin1String("--rate")) {
        return take(word, mostRate, options.rate);
    }
    if (name == QLatin1String("--seconds")) {
        return take(word, mostSeconds, options.seconds);
    }
    return name == QLatin1String("--plant") && takePlant(word, options.plant);
}

} // namespace

std::optional<RateOptions> RateOptions::fromWords(const QStringList &words, QString &problem)
{
    RateOptions options;
    for (int i = 0; i < words.size(); i += 2) {
        const QString word = i + 1 < words.size() ? words[i + 1] : QString();
        if (!takeOption(options, words[i], word)) {
            problem = QStringLiteral("cannot take '%1'; see script/bench-record --help")
                          .arg(QStringList(words.mid(i, 2)).join(QLatin1Char(' ')));
            return {};
        }
    }
    if (options.changing > options.leaves) {
        problem = QStringLiteral("--changing is above --leaves; see script/bench-record --help");
        return {};
    }
    return options;
}
