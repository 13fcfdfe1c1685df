#include "native/ForkMark.h"

#include <atomic>

#include <pthread.h>

namespace {

std::atomic<unsigned int> forks{0};

unsigned int countedForks()
{
    static const int isCounting = pthread_atfork(nullptr, nullptr, [] { ++forks; });
    Q_UNUSED(isCounting)
    return forks;
}

} // namespace

ForkMark::ForkMark() : m_forks(countedForks()) { }

bool ForkMark::isInChild() const
{
    return m_forks != forks;
}

void ForkMark::requireOwnProcess() const
{
    if (isInChild()) {
        throw Failure{Failure::Kind::Forked,
                      QStringLiteral("this region was opened before a fork and belongs to the "
                                     "parent process; attach anew in the child")};
    }
}
