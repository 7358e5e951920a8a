/// One job met by one misfortune, the plain run after it, and what is left.
#pragma once

#include "torture/Bench.h"
#include "torture/Counts.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace torture {

class Trial {
public:
    /// @param said  gets a text for each thing that is wrong
    Trial(Bench& bench, const Job& job, const Course& course, const Misfortune& misfortune,
          std::vector<std::string>& said);

    Counts run();

private:
    Ended meetMisfortune();
    std::unique_ptr<Program> startArmed();
    bool happensAt(Program& vesk);
    bool waitForMoment(const Program& vesk);
    bool wasMetOnDisk(const Ended& ended) const;

    void judgeRun(const Ended& ended, const char* which, bool mayBeKilled = false);
    void judgeOpenDescriptors(const char* which);
    void judgeClaims(const Ended& first);
    bool isWantedNow() const;
    bool isAllDoneOnOther() const;
    void judgeOtherPhone(bool claimsSuccess);
    void judgeEnd();
    void judgeRingtone(const std::string& name, const std::string& sound, const Ringtones& now);

    Ended runVesk(const std::vector<std::string>& arguments, const char* which);
    void runPlainly();

    void undoAll();
    void undoLastAddition();
    void undoBesideOtherProgram();
    void undoUntilBefore();
    void judgeUndone(const Files& wanted);

    void say(const std::string& what);

    Bench& bench_;
    const Job& job_;
    const Course& course_;
    const Misfortune& misfortune_;
    std::vector<std::string>& said_;
    std::string spoken_; ///< what the programs have said so far
    Counts counts_;
    std::unique_ptr<Program> other_;
    bool isAdded_ = false; ///< somebody else has put a ringtone on the phone
    Files beforePlain_;
};

} // namespace torture
