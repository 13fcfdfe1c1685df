#include "Companion/Exchange/SetWaiting_p.h"
#include "support/DoubleBuffer.h"
#include "support/FutexCalls.h"
#include "support/SteppedChild.h"

#include <QtTest>

namespace {

enum class Answer : unsigned char { None, Begun, Over, Armed };

/// A child that arms for the first epoch.
class ArmingChild : public SteppedChild
{
public:
    ArmingChild(const DoubleBuffer &memory, const SharedMapping &place)
        : SteppedChild([&] {
            *place.start() = static_cast<unsigned char>(Answer::Begun);
            const bool isArmed = SetWaiting::arm(*memory.management(), 0);
            *place.start() = static_cast<unsigned char>(isArmed ? Answer::Armed : Answer::Over);
        })
        , m_place(place)
    {
    }

    Answer answer() const { return static_cast<Answer>(*m_place.start()); }
    /// So many instructions behind the beginning. False if it has its answer before.
    bool stepFromBeginning(int count)
    {
        while (answer() == Answer::None && step()) { }
        for (int i = 0; i < count && answer() == Answer::Begun && step(); ++i) { }
        return answer() == Answer::Begun;
    }

private:
    const SharedMapping &m_place;
};

} // namespace

/// Who sleeps in the kernel already looks at nothing any more: whoever arms for it has to know whether
/// a publisher has seen that.
class tst_ArmingSteps : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void setAtEachInstructionIsToldByAWakeOrByTheAnswer();
};

void tst_ArmingSteps::setAtEachInstructionIsToldByAWakeOrByTheAnswer()
{
    int over = 0;
    int armed = 0;
    bool isInside = true;
    for (int steps = 0; isInside; ++steps) {
        const DoubleBuffer memory;
        const auto handler = memory.create();
        const SharedMapping place(1);
        ArmingChild child(memory, place);
        if (!child.canBeTraced()) {
            QSKIP("needs ptrace", );
        }
        isInside = child.stepFromBeginning(steps);
        const int wakes = FutexCalls::wakes();

        QVERIFY(publishSet(*handler, 1));
        const bool isWoken = FutexCalls::wakes() > wakes;
        child.goOn();

        QVERIFY(child.hasEndedWell());
        QVERIFY2(isWoken || child.answer() == Answer::Over, qPrintable(QString::number(steps)));
        over += child.answer() == Answer::Over ? 1 : 0;
        armed += child.answer() == Answer::Armed ? 1 : 0;
    }

    QVERIFY(over > 0);
    QVERIFY(armed > 0);
}

QTEST_GUILESS_MAIN(tst_ArmingSteps)
#include "tst_ArmingSteps.moc"
