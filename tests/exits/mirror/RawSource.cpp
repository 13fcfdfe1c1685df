// Writes samples as no source would: MirrorRawSource DOMAIN [LEASE [IDENTITY]], with the lease in milliseconds and the
// identity of the source as its 32 hexadecimal digits. A line of its standard input is
//   KEY FINGERPRINT BYTE_ORDER STATUS ATTACHMENT GENERATION TIME HEX
// with one blank between, FINGERPRINT in hexadecimal, "-" for no bytes and "*N" for N bytes of 0; or
//   dispose KEY
//   unregister KEY
//   identity HEX    of what follows
// Each is answered by "sent".
#include "mirror/MirrorDomain.h"
#include "service/Refusal.h"

#include <QByteArray>
#include <QList>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include <MirrorTopics.h>

namespace {

constexpr int usualLease = 20000; // ms
/// What is to be refused has to leave first.
constexpr quint64 largestSample = 1 << 30;

QByteArray bytesOf(const QByteArray &word)
{
    if (word == "-") {
        return {};
    }
    return word.startsWith('*') ? QByteArray(word.mid(1).toInt(), '\0') : QByteArray::fromHex(word);
}

/// With the key alone.
tessel_mirror_SourceSet sampleOf(const QByteArray &key, const QByteArray &identity)
{
    tessel_mirror_SourceSet sample{};
    std::strncpy(sample.region, key.constData(), sizeof sample.region - 1);
    std::memcpy(sample.source, identity.constData(), sizeof sample.source);
    return sample;
}

void require(dds_return_t result)
{
    if (result != DDS_RETCODE_OK) {
        std::fprintf(stderr, "%s\n", dds_strretcode(result));
        std::exit(EXIT_FAILURE);
    }
}

void send(dds_entity_t writer, const QByteArray &identity, const QList<QByteArray> &words)
{
    QByteArray bytes = bytesOf(words[7]);
    tessel_mirror_SourceSet sample = sampleOf(words[0], identity);
    std::strcpy(sample.host, "raw");
    sample.fingerprint = words[1].toULongLong(nullptr, 16);
    sample.byte_order = static_cast<uint8_t>(words[2].toUInt());
    sample.status = static_cast<uint8_t>(words[3].toUInt());
    sample.attachment = words[4].toUInt();
    sample.generation = words[5].toULongLong();
    sample.time_stamp = words[6].toLongLong();
    sample.bytes._buffer = reinterpret_cast<uint8_t *>(bytes.data());
    sample.bytes._length = sample.bytes._maximum = static_cast<uint32_t>(bytes.size());
    require(dds_write(writer, &sample));
}

bool perform(dds_entity_t writer, QByteArray &identity, const QList<QByteArray> &words)
{
    if (words.size() == 2 && words[0] == "identity") {
        identity = QByteArray::fromHex(words[1]);
        return true;
    }
    const bool isEnd = words.size() == 2 && (words[0] == "dispose" || words[0] == "unregister");
    if (isEnd) {
        const tessel_mirror_SourceSet sample = sampleOf(words[1], identity);
        require(words[0] == "dispose" ? dds_dispose(writer, &sample)
                                      : dds_unregister_instance(writer, &sample));
    } else if (words.size() == 8) {
        send(writer, identity, words);
    }
    return isEnd || words.size() == 8;
}

} // namespace

int main(int argc, char *argv[])
try {
    DomainSettings settings;
    settings.domain = argc > 1 ? static_cast<quint32>(std::atoi(argv[1])) : 0;
    settings.interfaces = QStringList(QStringLiteral("lo"));
    settings.sampleLimit = largestSample;
    const int lease = argc > 2 ? std::atoi(argv[2]) : usualLease;
    QByteArray identity = argc > 3 ? QByteArray::fromHex(argv[3]) : QByteArray(16, 'r');
    const MirrorDomain domain(settings);
    const dds_entity_t writer = domain.makeSetWriter(lease);
    std::string line;
    while (std::getline(std::cin, line)) {
        if (!perform(writer, identity, QByteArray::fromStdString(line).split(' '))) {
            return EXIT_FAILURE;
        }
        std::puts("sent");
        std::fflush(stdout);
    }
    return EXIT_SUCCESS;
} catch (const Refusal &refusal) {
    std::fputs(qPrintable(refusal.text), stderr);
    return EXIT_FAILURE;
}
