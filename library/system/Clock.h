#pragma once

namespace krl::system {

/// Sleeps the calling thread for whole seconds, as sleep(3) does without signals.
void sleepSeconds(unsigned seconds);

using SleepFunction = void (*)(unsigned seconds);

/// Replaces what sleepSeconds does, so that a test need not wait; null restores real sleeping.
/// Returns the function that was in force. Not to be called while another thread sleeps.
SleepFunction setSleepFunction(SleepFunction function);

} // namespace krl::system
