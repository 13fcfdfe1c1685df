#pragma once

#include "completion/Completion.h"

/// The URLs that a typed one may become, up to the next piece where they part.
///
/// All throw a Failure if the file or folder at @p path cannot be read.
enum class UrlsOf { Everything, WhatCanBeWritten };

QVector<Completion::Candidate> processUrls(const QString &path, const QString &typed,
                                           UrlsOf leaves);
/// Cells are there for the actions that take them.
QVector<Completion::Candidate> configurationUrls(const QString &action, const QString &path,
                                                 const QString &typed);

/// The values of the leaf, or of the cell, where they are few; else none.
QStringList processValues(const QString &path, const QString &url);
QStringList configurationValues(const QString &path, const QString &url);
