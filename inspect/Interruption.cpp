#include "inspect/Interruption.h"

#include "posix/CSimpleCmdExec.h"

#include <cstdlib>
#include <stdexcept>

namespace inspect {
namespace {

volatile std::sig_atomic_t caught = 0;

extern "C" void CatchSignal(int signal) {
    caught = signal;
    posix::CSimpleCmdExec::SetStopped(true);
}

} // namespace

Interruption::Interruption() {
    struct sigaction action {};
    action.sa_handler = CatchSignal;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < signals.size(); ++i) {
        sigaction(signals[i], nullptr, &former_[i]);
        if (former_[i].sa_handler != SIG_IGN)
            sigaction(signals[i], &action, nullptr);
    }
}

Interruption::~Interruption() {
    for (std::size_t i = 0; i < signals.size(); ++i)
        sigaction(signals[i], &former_[i], nullptr);
}

int Interruption::Signal() noexcept {
    return caught;
}

void Interruption::Check() {
    if (caught != 0)
        throw std::runtime_error("interrupted");
}

void Interruption::EndBy(int signal) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
    raise(signal);
    std::_Exit(128 + signal); // only when the signal is blocked
}

} // namespace inspect
