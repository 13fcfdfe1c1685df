#pragma once

#include <QStringList>

/// What script/sizes measures of the library. Each part is a process of its own, as memory is counted for a
/// whole process, and prints a line for each of its steps.
namespace Parts {

/// A configuration, FILE or FOLDER: parsed, asked for each of its URLs, framed and given back.
void tree(const QStringList &words);
/// FILE with the configuration leaf `text`, which is read, changed and framed.
void text(const QStringList &words);
/// FILE with the array `table` of two columns: loaded, read, and a cell of it written.
void table(const QStringList &words);
/// FOLDER of process descriptions that were never built, and KEYPREFIX: built, built again.
void build(const QStringList &words);
/// A process description, FILE, or FOLDER and KEYPREFIX: made live, written, and read in every way.
void region(const QStringList &words);
/// FILE with the process leaf `text`, which is as long as its slot allows.
void slotText(const QStringList &words);
/// FILE and COUNT: so many processes attach, sleep until each of a hundred sets, read it, and leave.
void processes(const QStringList &words);
/// COUNT and FILE...: so many regions in one process, each made and attached to.
void regions(const QStringList &words);
/// COUNT and FILE...: makes all regions, has so many processes attach to the first one, says a line, and keeps
/// them until its input ends or a signal comes.
void hold(const QStringList &words);
/// COUNT: takes four times as long for twice as many, so that script/sizes shows that it finds that.
void planted(const QStringList &words);

} // namespace Parts
