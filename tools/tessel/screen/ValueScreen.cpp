#include "screen/ValueScreen.h"

#include "Companion/ConfigurationAndProcessDataDefinitions.h"
#include "live/RegionFollower.h"
#include "live/RegionText.h"
#include "live/SetStatistics.h"
#include "screen/CursesTerminal.h"
#include "screen/TrendMemory.h"
#include "text/LogCollector.h"

#include <algorithm>

#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using Key = CursesTerminal::Key;

/// In whose words is said that a terminal is none for it.
const QLatin1String command("watch");

/// Some thirty pictures a second: more are never seen.
constexpr milliseconds leastPictureInterval{33};
/// How often the age is drawn and the region looked for where nothing else happens.
constexpr milliseconds lookInterval{250};
/// Behind as long without a set it is worth a word that none could be copied.
constexpr milliseconds patience{1000};

/// The values of the set that a follower has taken last.
class FollowedValues : public ShownValues
{
public:
    FollowedValues(const RegionFollower &follower, const QVector<Leaf> &leaves)
        : m_follower(follower)
        , m_leaves(leaves)
    {
    }

    std::optional<ProcessValue> value(int leaf) const override
    {
        ProcessValue value(ProcessDataDefinitions::PROCESS_VALUE_ERROR_TYPE_VALID);
        const bool isKnown = !m_follower.set().isEmpty()
                             && m_follower.set().getValue(*m_leaves[leaf].element, value);
        return isKnown ? std::make_optional(value) : std::nullopt;
    }
    QString unit(int leaf) const override
    {
        return textProperty(m_leaves[leaf],
                            ConfigurationAndProcessDataDefinitions::getKeyDataPropertyUnit());
    }

private:
    const RegionFollower &m_follower;
    QVector<Leaf> m_leaves;
};

QStringList urlsOf(const QVector<Leaf> &leaves)
{
    QStringList urls;
    for (const auto &leaf : leaves) {
        urls.append(leaf.url);
    }
    return urls;
}

/// Messages of the library would stand in the midst of the picture.
class HeldMessages
{
public:
    HeldMessages() { LogCollector::holdMessages(); }
    ~HeldMessages() { LogCollector::releaseMessages(); }

    HeldMessages(const HeldMessages &) = delete;
    HeldMessages &operator=(const HeldMessages &) = delete;
};

/// One run of the full screen.
class ValueScreen
{
public:
    ValueScreen(const DescriptionSource &description, const ScreenOrder &order)
        : m_follower(description)
        , m_leaves(m_follower.region().readable(order.leaves, order.urls))
        , m_interval(order.interval)
        , m_title(description.key())
        , m_values(m_follower, m_leaves)
        , m_tree(urlsOf(m_leaves))
        , m_terminal(command)
        , m_picture(charactersOfLocale())
        , m_isSingleBuffer(!description.isDoubleBuffered())
    {
    }

    void run(SignalWait &signals);

private:
    Clock::time_point nextMoment() const;
    bool isSetDue(Clock::time_point now) const;
    void doWhatIsDue();
    void takeSet();
    void look();
    void draw();
    RegionFacts facts() const;
    std::optional<qint64> usualInterval() const;
    ValueTrend::Time trendTime() const;
    void followSelected();
    void judgeValues();

    void handleKeys();
    void handle(const Key &key);
    void handleWhileTyping(const Key &key);
    void handleCharacter(const QString &character);

    RegionFollower m_follower;
    QVector<Leaf> m_leaves;
    milliseconds m_interval;
    QString m_title;
    FollowedValues m_values;
    ValueTree m_tree;
    TrendMemory m_trends;
    HeldMessages m_messages;
    CursesTerminal m_terminal;
    ScreenPicture m_picture;
    bool m_isSingleBuffer;
    SetStatistics m_statistics{0};
    std::optional<qint64> m_deadCreator;
    int m_attachments = 0;
    bool m_isEnded = false;
    bool m_isTyping = false;
    bool m_isHelpShown = false;
    bool m_isDirty = true;
    Clock::time_point m_begin = Clock::now();
    Clock::time_point m_lastSet = m_begin;
    Clock::time_point m_nextSet = m_begin;
    Clock::time_point m_nextPicture = m_begin;
    Clock::time_point m_nextLook = m_begin;
};

void ValueScreen::run(SignalWait &signals)
{
    while (!m_isEnded) {
        doWhatIsDue();
        // The descriptor stays readable until the set is taken: a fast publisher wakes as often as is drawn.
        const int sets = Clock::now() < m_nextSet ? -1 : m_follower.descriptor();
        switch (signals.waitUntilReadable({STDIN_FILENO, sets}, nextMoment())) {
        case SignalWait::Event::End: m_isEnded = true; break;
        case SignalWait::Event::Stop: m_terminal.stop(); break;
        case SignalWait::Event::Continued: m_terminal.resume(); break;
        case SignalWait::Event::Resized: m_terminal.resize(); break;
        case SignalWait::Event::Readable: handleKeys(); continue;
        case SignalWait::Event::TimePassed: continue;
        }
        m_isDirty = true;
        m_nextPicture = Clock::now();
    }
}

Clock::time_point ValueScreen::nextMoment() const
{
    Clock::time_point next = m_nextLook;
    if (m_isDirty) {
        next = std::min(next, m_nextPicture);
    }
    if (m_isSingleBuffer || m_follower.isOwed() || Clock::now() < m_nextSet) {
        next = std::min(next, m_nextSet);
    }
    return next;
}

void ValueScreen::doWhatIsDue()
{
    if (Clock::now() >= m_nextLook) {
        look();
    }
    if (Clock::now() >= m_nextSet) {
        takeSet();
    }
    if (m_isDirty && Clock::now() >= m_nextPicture) {
        draw();
    }
}

void ValueScreen::takeSet()
{
    const bool wasThere = m_follower.isThere();
    if (m_follower.take()) {
        const Clock::time_point now = Clock::now();
        m_statistics.add(m_follower.set().getGeneration(), now);
        m_trends.add(trendTime(), m_values);
        m_lastSet = now;
        m_nextSet = now + std::max(m_interval, leastPictureInterval);
        m_isDirty = true;
    } else if (m_isSingleBuffer) {
        m_nextSet = Clock::now() + std::max(m_interval, leastPictureInterval);
    } else if (m_follower.isOwed()) {
        m_nextSet = Clock::now() + leastPictureInterval;
    }
    if (wasThere && !m_follower.isThere()) {
        m_trends.addGap(trendTime());
        m_isDirty = true;
    }
}

void ValueScreen::look()
{
    const bool wasThere = m_follower.isThere();
    m_follower.look();
    if (wasThere && !m_follower.isThere()) {
        m_trends.addGap(trendTime());
    }
    if (m_follower.attachments() != m_attachments) {
        m_attachments = m_follower.attachments();
        m_statistics = SetStatistics(0);
        m_nextSet = Clock::now();
    }
    const RegionCreator creator = m_follower.creator();
    m_deadCreator = creator.isAlive == false ? creator.pid : std::nullopt;
    m_nextLook = Clock::now() + lookInterval;
    m_isDirty = true;
}

std::optional<qint64> ValueScreen::usualInterval() const
{
    const auto median = m_statistics.median();
    if (!median) {
        return std::nullopt;
    }
    return std::chrono::ceil<milliseconds>(*median).count();
}

RegionFacts ValueScreen::facts() const
{
    RegionFacts facts;
    facts.absence = m_follower.absence();
    if (Clock::now() - m_lastSet > patience) {
        facts.hindrance = m_follower.hindrance();
    }
    if (const auto swap = m_follower.lastSwap()) {
        facts.age = swap->msecsTo(QDateTime::currentDateTimeUtc());
    }
    facts.usualInterval = usualInterval();
    facts.deadCreator = m_deadCreator;
    return facts;
}

ValueTrend::Time ValueScreen::trendTime() const
{
    return std::chrono::duration_cast<ValueTrend::Time>(Clock::now() - m_begin);
}

/// Only numbers have a trend, and one that nobody looks at costs nothing.
void ValueScreen::followSelected()
{
    const int leaf = m_tree.selectedLeaf();
    if (leaf < 0 || m_trends.trend(leaf) != nullptr
        || slotOf(m_leaves[leaf]).type == QLatin1String("string")) {
        return;
    }
    m_trends.follow(leaf, m_tree.pinnedLeaves());
    if (m_follower.isThere() && !m_follower.set().isEmpty()) {
        m_trends.add(leaf, trendTime(), m_values);
    }
}

/// Only where somebody asks for what is not valid all values are decoded.
void ValueScreen::judgeValues()
{
    if (!m_tree.isInvalidOnly()) {
        return;
    }
    std::vector<bool> invalid(static_cast<std::size_t>(m_leaves.size()));
    for (int leaf = 0; leaf < m_leaves.size(); ++leaf) {
        const auto value = m_values.value(leaf);
        invalid[static_cast<std::size_t>(leaf)] = !value || paintOf(*value) != Paint::Good;
    }
    m_tree.setInvalid(invalid);
}

void ValueScreen::draw()
{
    judgeValues();
    followSelected();
    const int leaf = m_tree.selectedLeaf();
    ScreenFacts shown{m_tree, m_values, m_title, statusOf(facts())};
    const auto swap = m_follower.lastSwap();
    shown.age = swap ? ageText(swap) : QString();
    shown.set = m_follower.set().getGeneration();
    shown.trend = leaf < 0 ? nullptr : m_trends.trend(leaf);
    shown.now = trendTime();
    shown.isTyping = m_isTyping;
    shown.isHelpShown = m_isHelpShown;
    m_terminal.show(m_picture.lines(shown, m_terminal.size()));
    m_isDirty = false;
    m_nextPicture = Clock::now() + leastPictureInterval;
}

void ValueScreen::handleKeys()
{
    bool isAny = false;
    while (const auto key = m_terminal.key()) {
        isAny = true;
        handle(*key);
    }
    m_isDirty = m_isDirty || isAny;
    if (!isAny && m_terminal.isGone()) {
        m_isEnded = true;
    }
}

void ValueScreen::handle(const Key &key)
{
    if (m_isHelpShown) {
        m_isHelpShown = false;
        return;
    }
    if (m_isTyping) {
        handleWhileTyping(key);
        return;
    }
    switch (key.what) {
    case Key::What::Up: m_tree.moveBy(-1); break;
    case Key::What::Down: m_tree.moveBy(1); break;
    case Key::What::PageUp: m_tree.moveBy(-m_picture.pageRows()); break;
    case Key::What::PageDown: m_tree.moveBy(m_picture.pageRows()); break;
    case Key::What::Home: m_tree.moveToFirst(); break;
    case Key::What::End: m_tree.moveToLast(); break;
    case Key::What::Left: m_tree.fold(); break;
    case Key::What::Right: m_tree.unfold(); break;
    case Key::What::Enter: m_tree.toggle(); break;
    case Key::What::Escape: m_tree.setFilter({}); break;
    case Key::What::Character: handleCharacter(key.character); break;
    case Key::What::Erase:
    case Key::What::Other: break;
    }
}

void ValueScreen::handleWhileTyping(const Key &key)
{
    switch (key.what) {
    case Key::What::Character:
        if (key.character.at(0).isPrint() || key.character.at(0).isHighSurrogate()) {
            m_tree.setFilter(m_tree.filter() + key.character);
        }
        break;
    case Key::What::Erase:
        m_tree.setFilter(m_tree.filter().chopped(m_tree.filter().isEmpty() ? 0 : 1));
        break;
    case Key::What::Escape:
        m_tree.setFilter({});
        m_isTyping = false;
        break;
    case Key::What::Enter: m_isTyping = false; break;
    default: break;
    }
}

void ValueScreen::handleCharacter(const QString &character)
{
    constexpr char redraw = 'L' - '@'; // Ctrl-L
    switch (character.at(0).toLatin1()) {
    case 'q': m_isEnded = true; break;
    case '?': m_isHelpShown = true; break;
    case '/': m_isTyping = true; break;
    case 'p': m_tree.togglePin(); break;
    case ' ': m_tree.toggle(); break;
    case '!':
        m_tree.setInvalidOnly(!m_tree.isInvalidOnly());
        judgeValues();
        break;
    case redraw: m_terminal.drawAnew(); break;
    default: break;
    }
}

} // namespace

void requireScreen()
{
    CursesTerminal::require(command);
}

void showOnScreen(const DescriptionSource &description, const ScreenOrder &order,
                  SignalWait &signals)
{
    ValueScreen(description, order).run(signals);
}
