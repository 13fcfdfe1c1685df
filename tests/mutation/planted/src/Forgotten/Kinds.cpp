#include <atomic>
#include <cstring>

std::atomic<int> published{0};

void take(int first, int second);
void note(const char *text);

int everyKind(int first, int second, bool isWanted)
{
    int sum = first + second;
    if (isWanted) {
        sum *= 3;
    }
    take(first, second); // one of these
    sum = second;
    note("text");
    published.store(sum, std::memory_order_release);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    return isWanted || first == 'a' ? sum : -1;
}

void take(int first, int second)
{
    if (first > second) {
        return;
    }
    published = second;
}

void note(const char *text)
{
    // Neither of these can be chosen while a program runs.
    constexpr int least = 17;
    static const int longest = 19;
    static_assert(least == 17);
    published = std::strlen(text) > least + longest ? 1 : 0;
}
