#include "TesselModels/ProcessDataItem.h"

#include "TesselModels/LeafCells_p.h"
#include "TesselModels/ProcessDataSource.h"
#include "TesselModels/UrlTree_p.h"

#include <QPointer>

#include <utility>

using namespace TesselModels;

class ProcessDataItem::Private
{
public:
    void find()
    {
        set = ShownSetAccess::of(source);
        leaf = set->description ? set->description->find(url) : -1;
    }

    QPointer<ProcessDataSource> source;
    QString url;
    std::shared_ptr<const ShownSet> set = ShownSetAccess::of(nullptr);
    int leaf = -1; ///< -1: the description has none
};

ProcessDataItem::ProcessDataItem(QObject *parent)
    : QObject(parent)
    , m_private(std::make_unique<Private>())
{
}

ProcessDataItem::~ProcessDataItem() = default;

ProcessDataSource *ProcessDataItem::getSource() const
{
    return m_private->source;
}

void ProcessDataItem::setSource(ProcessDataSource *source)
{
    if (source == m_private->source) {
        return;
    }
    if (m_private->source) {
        m_private->source->disconnect(this);
    }
    m_private->source = source;
    if (source != nullptr) {
        connect(source, &ProcessDataSource::setShown, this, &ProcessDataItem::showSet);
        connect(source, &ProcessDataSource::writeFailed, this,
                [this](const QString &url, int code, const QString &text) {
                    if (plainUrl(url) == plainUrl(m_private->url)) {
                        Q_EMIT writeFailed(code, text);
                    }
                });
        connect(source, &QObject::destroyed, this, [this] {
            m_private->source.clear();
            begin();
            Q_EMIT sourceChanged();
        });
    }
    begin();
    Q_EMIT sourceChanged();
}

QString ProcessDataItem::getUrl() const
{
    return m_private->url;
}

void ProcessDataItem::setUrl(const QString &url)
{
    if (url != m_private->url) {
        m_private->url = url;
        begin();
        Q_EMIT urlChanged();
    }
}

/// Of another value, or another description.
void ProcessDataItem::begin()
{
    const int formerLeaf = m_private->leaf;
    const bool wasWritable = isWritable();
    m_private->find();
    if (formerLeaf >= 0 || m_private->leaf >= 0) {
        Q_EMIT descriptionChanged();
        Q_EMIT valueChanged();
    }
    // cppcheck-suppress knownConditionTrueFalse ; find() leads to another leaf
    if (isWritable() != wasWritable) {
        Q_EMIT isWritableChanged();
    }
}

void ProcessDataItem::showSet()
{
    const auto set = ShownSetAccess::of(m_private->source);
    if (set->description != m_private->set->description) {
        begin();
        return;
    }
    const bool wasWritable = isWritable();
    const auto former = std::exchange(m_private->set, set);
    if (m_private->leaf >= 0 && !set->isSame(m_private->leaf, *former)) {
        Q_EMIT valueChanged();
    }
    // cppcheck-suppress knownConditionTrueFalse ; it is answered from the other set now
    if (isWritable() != wasWritable) {
        Q_EMIT isWritableChanged();
    }
}

QVariant ProcessDataItem::answer(int role) const
{
    return LeafCells::data(*m_private->set, m_private->leaf, m_private->url, ValueColumn, role);
}

QVariant ProcessDataItem::getValue() const
{
    return answer(ValueRole);
}

void ProcessDataItem::setValue(const QVariant &value)
{
    if (m_private->source) {
        m_private->source->write(m_private->url, value);
    }
}

QString ProcessDataItem::getText() const
{
    return answer(TextRole).toString();
}

int ProcessDataItem::getState() const
{
    return answer(StateRole).toInt();
}

QString ProcessDataItem::getStateName() const
{
    return answer(StateNameRole).toString();
}

bool ProcessDataItem::isValid() const
{
    return answer(ValidRole).toBool();
}

QString ProcessDataItem::getName() const
{
    return answer(NameRole).toString();
}

QString ProcessDataItem::getUnit() const
{
    return answer(UnitRole).toString();
}

QString ProcessDataItem::getType() const
{
    return answer(TypeRole).toString();
}

QString ProcessDataItem::getLabel() const
{
    return answer(LabelRole).toString();
}

QVariant ProcessDataItem::getMinimum() const
{
    return answer(MinimumRole);
}

QVariant ProcessDataItem::getMaximum() const
{
    return answer(MaximumRole);
}

bool ProcessDataItem::isWritable() const
{
    return LeafCells::isWritable(*m_private->set, m_private->leaf);
}
