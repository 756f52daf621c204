// Interrupts, taken at a place where they can be answered.
#pragma once

namespace Vardctl {

/// Holds SIGINT, SIGTERM, SIGHUP and SIGQUIT back while it lives. One that came and was not taken does its usual work
/// when the object goes, after the objects made later have put back what they changed.
class HeldSignals {
public:
    /// Holds them back from now on. Throws Failure when they cannot be watched.
    HeldSignals();
    /// Lets them through.
    ~HeldSignals();
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    /// A descriptor that can be read when a signal came.
    [[nodiscard]] int descriptor() const { return descriptor_; }
    /// Takes the signal that came away: it does nothing more.
    void take() const;

private:
    int descriptor_ = -1;
};

} // namespace Vardctl
