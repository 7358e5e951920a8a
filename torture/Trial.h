/// One job met by one misfortune or two, the plain run after that, and what is left.
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
    /// @param misfortunes  the first meets the job, each further one the attempt to repeat it
    /// @param said  gets a text for each thing that is wrong
    Trial(Bench& bench, const Job& job, const Course& course,
          const std::vector<Misfortune>& misfortunes, std::vector<std::string>& said);

    Counts run();

private:
    Ended meet(const Misfortune& misfortune);
    std::unique_ptr<Program> startArmed(const Misfortune& misfortune);
    bool happensAt(const std::string& action, Program& vesk);
    bool waitForMoment(const Program& vesk);
    bool wasMetOnDisk(const Misfortune& misfortune, const Ended& ended) const;

    const std::string& firstAction() const { return misfortunes_.front().action; }

    void judgeRun(const Ended& ended, const char* which, bool mayBeKilled = false);
    void judgeOpenDescriptors(const char* which);
    void judgeClaims(const Ended& first);
    bool isWantedNow() const;
    bool isAllDoneOnOther() const;
    void judgeOtherPhone(bool claimsSuccess);
    void judgeEnd();
    void judgeRingtone(const std::string& name, const std::string& sound, const Ringtones& now);

    Ended runVesk(const std::vector<std::string>& arguments, const char* which);
    void countJob(const Ended& ended, const Files& before);
    void runPlainly();

    void undoAll();
    void undoLastAddition();
    void undoBesideOtherProgram();
    void undoUntilBefore(size_t jobs);
    void judgeUndone(const Files& wanted);

    void say(const std::string& what);

    Bench& bench_;
    const Job& job_;
    const Course& course_;
    const std::vector<Misfortune>& misfortunes_;
    std::vector<std::string>& said_;
    std::string spoken_; ///< what the programs have said so far
    Counts counts_;
    std::unique_ptr<Program> other_;
    bool isAdded_ = false; ///< somebody else has put a ringtone on the phone
    size_t jobsDone_ = 0;
    std::vector<Files> between_; ///< what the phone held between the runs
};

} // namespace torture
