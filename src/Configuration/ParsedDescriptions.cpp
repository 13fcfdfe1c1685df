#include "Configuration/ParsedDescriptions_p.h"

namespace {

thread_local ParsedDescriptions *currentDescriptions = nullptr;

} // namespace

ParsedDescriptions::ParsedDescriptions()
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
    if (const auto source = currentDescriptions->sourceOf(tree)) {
        currentDescriptions->m_sources.remove(tree.data());
        currentDescriptions->m_returned.insert(*source, tree);
    }
}

std::optional<ParsedDescriptions::Source> ParsedDescriptions::sourceOf(const Tree &tree) const
{
    const auto found = m_sources.constFind(tree.data());
    const bool isKnown = found != m_sources.constEnd() && !tree.isNull()
                         && found.value().first.toStrongRef() == tree;
    return isKnown ? std::make_optional(found.value().second) : std::nullopt;
}

void ParsedDescriptions::noteSource(const Tree &tree, const Source &source)
{
    m_sources.insert(tree.data(), {tree.toWeakRef(), source});
}
