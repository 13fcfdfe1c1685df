#include "native/LibraryMessages.h"

#include <QtGlobal>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <utility>
#include <vector>

#include <pybind11/pybind11.h>

namespace py = pybind11;

namespace {

struct Message
{
    int level; ///< as Python's logging counts
    QString text;
};

/// A program that never comes back to Python must not fill its memory with what nobody reads.
constexpr std::size_t mostWaiting = 1000;

/// Never destroyed: the library may speak while the process ends.
struct Queue
{
    std::mutex mutex;
    std::vector<Message> messages;
    std::size_t lost = 0;
    std::atomic<bool> isEmpty{true};
};

Queue &queue()
{
    static auto *const queue = new Queue;
    return *queue;
}

struct Collector
{
    int depth = 0;
    std::vector<Message> messages;
};

Collector &collector()
{
    thread_local Collector collector;
    return collector;
}

int levelOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg: return 10;
    case QtInfoMsg: return 20;
    case QtWarningMsg: return 30;
    case QtCriticalMsg: return 40;
    case QtFatalMsg: break;
    }
    return 50;
}

void enqueue(Message message)
{
    const std::lock_guard<std::mutex> lock(queue().mutex);
    if (queue().messages.size() >= mostWaiting) {
        ++queue().lost;
        return;
    }
    queue().messages.push_back(std::move(message));
    queue().isEmpty = false;
}

void handle(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    if (type == QtFatalMsg) {
        // Qt ends the process behind this call.
        std::fprintf(stderr, "%s\n", text.toUtf8().constData());
        return;
    }
    Message message{levelOf(type), text};
    if (collector().depth > 0) {
        collector().messages.push_back(std::move(message));
    } else {
        enqueue(std::move(message));
    }
}

std::vector<Message> takeAll()
{
    const std::lock_guard<std::mutex> lock(queue().mutex);
    auto messages = std::exchange(queue().messages, {});
    const auto lost = std::exchange(queue().lost, 0);
    if (lost > 0) {
        messages.push_back({30, QStringLiteral("%1 further messages were lost").arg(lost)});
    }
    queue().isEmpty = true;
    return messages;
}

} // namespace

void LibraryMessages::install()
{
    qInstallMessageHandler(handle);
}

void LibraryMessages::deliver()
{
    if (queue().isEmpty) {
        return;
    }
    // An exception that is on its way must not be lost to one of a logging handler.
    const py::error_scope kept;
    try {
        const auto logger = py::module_::import("logging").attr("getLogger")("tessel");
        for (const auto &message : takeAll()) {
            logger.attr("log")(message.level, "%s", message.text.toUtf8().constData());
        }
    } catch (py::error_already_set &error) {
        error.discard_as_unraisable("tessel: logging a message of the library");
    }
}

LibraryReasons::LibraryReasons()
{
    ++collector().depth;
}

LibraryReasons::~LibraryReasons()
{
    if (--collector().depth > 0) {
        return;
    }
    for (auto &message : std::exchange(collector().messages, {})) {
        enqueue(std::move(message));
    }
}

QString LibraryReasons::take()
{
    QStringList texts;
    std::vector<Message> others;
    for (auto &message : std::exchange(collector().messages, {})) {
        if (message.level < 30) {
            others.push_back(std::move(message));
        } else if (!texts.contains(message.text)) {
            texts.append(message.text.simplified());
        }
    }
    collector().messages = std::move(others);
    return texts.join(QStringLiteral("; "));
}

QString LibraryReasons::behind(const QString &text)
{
    const QString reasons = take();
    return reasons.isEmpty() ? text : QStringLiteral("%1: %2").arg(text, reasons);
}
