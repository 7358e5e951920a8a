#include "engine/sync/Intentions.h"

namespace krl::engine {

Intention intentionOf(const Plan& plan) {
    Intention intention{{}, plan.catalogue};
    for (const Operation& operation : plan.operations) {
        switch (operation.kind) {
        case Operation::Kind::Rename:
            intention.changes.push_back({.kind = IntendedChange::Kind::Move,
                                         .file = operation.file,
                                         .newFile = operation.newFile});
            break;
        case Operation::Kind::Upload:
        case Operation::Kind::Placeholder:
            intention.changes.push_back({.kind = IntendedChange::Kind::Write,
                                         .file = operation.file,
                                         .source = operation.source});
            break;
        case Operation::Kind::Remove:
        case Operation::Kind::DeleteStray:
            intention.changes.push_back(
                {.kind = IntendedChange::Kind::Remove, .file = operation.file});
            break;
        case Operation::Kind::RemoveCatalogue:
        case Operation::Kind::CreateFolder:
        case Operation::Kind::WriteCatalogue:
            break;
        }
    }
    return intention;
}

} // namespace krl::engine
