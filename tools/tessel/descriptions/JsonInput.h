#pragma once

#include <QJsonDocument>
#include <QString>

/// The JSON text in a file, or on standard input for "-". Whole numbers that the toolkit would round are texts
/// in it. A Failure if it cannot be read, is no JSON, gives a key of its top level twice, or is larger than
/// anything that is meant.
QJsonDocument jsonInput(const QString &path);
