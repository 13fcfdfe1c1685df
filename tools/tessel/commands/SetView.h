#pragma once

#include "ProcessData/ProcessValue.h"
#include "text/SignalWait.h"
#include "values/LeafSlot.h"

#include <QString>
#include <QVector>

#include <memory>

/// Shows one set after the other on standard output.
class SetView
{
public:
    virtual ~SetView() = default;
    virtual void show(const QVector<ProcessValue> &values) = 0;
    /// Ctrl-Z, or another size of the terminal.
    virtual void handle(SignalWait::Event event);
};

/// As lines: of each value one, with its time.
std::unique_ptr<SetView> lineView(const QVector<Leaf> &leaves);
/// As lines: of each set one, with the values alone.
std::unique_ptr<SetView> terseView();
/// As lines: of each set one, with a JSON object.
std::unique_ptr<SetView> jsonView(const QVector<Leaf> &leaves);
/// As a table that is shown in place, below @p title.
std::unique_ptr<SetView> tableView(const QVector<Leaf> &leaves, const QString &title);
