#include "Configuration/ParsedDescriptions_p.h"

namespace {

thread_local ParsedDescriptions *currentDescriptions = nullptr;

} // namespace

ParsedDescriptions::ParsedDescriptions(Texts texts) : m_texts(texts)
{
    if (currentDescriptions == nullptr) {
        currentDescriptions = this;
    }
}

ParsedDescriptions::~ParsedDescriptions()
{
    if (currentDescriptions == this) {
        currentDescriptions = nullptr;
    }
}

ParsedDescriptions *ParsedDescriptions::current()
{
    return currentDescriptions;
}

void ParsedDescriptions::noteWhatCanBeSeen()
{
    if (currentDescriptions != nullptr) {
        currentDescriptions->m_isRepeatable = false;
    }
}

void ParsedDescriptions::putBack(const Tree &tree)
{
    if (currentDescriptions == nullptr) {
        return;
    }
    if (const Origin *origin = currentDescriptions->originOf(tree)) {
        const Mark mark = origin->mark;
        currentDescriptions->m_origins.remove(tree.data());
        currentDescriptions->m_returned.insert(mark, tree);
    }
}

std::optional<ParsedDescriptions::Source> ParsedDescriptions::sourceOf(const Tree &tree) const
{
    const Origin *const origin = originOf(tree);
    if (origin == nullptr || m_texts == Texts::Dropped) {
        return std::nullopt;
    }
    return Source{origin->mark.first, origin->text};
}

const ParsedDescriptions::Origin *ParsedDescriptions::originOf(const Tree &tree) const
{
    const auto found = m_origins.constFind(tree.data());
    const bool isKnown = found != m_origins.constEnd() && !tree.isNull()
                         && found.value().first.toStrongRef() == tree;
    return isKnown ? &found.value().second : nullptr;
}

void ParsedDescriptions::noteOrigin(const Tree &tree, const Origin &origin)
{
    m_origins.insert(tree.data(), {tree.toWeakRef(), origin});
}
