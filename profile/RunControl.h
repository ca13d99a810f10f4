// What a test can learn about the run it is part of and tell it: whether a client asked the run
// to stop, the quick mode and coverage the client asked for, and how far the test has got. A
// test reads RunControl::current(), which answers the run of the calling thread; under the core's
// RunDiagnostic (no run of the layer) it answers a control that never stops and reports nowhere.
#ifndef DIAGPROFILE_RUNCONTROL_H
#define DIAGPROFILE_RUNCONTROL_H

#include <functional>

namespace NQORVA20::profile {

class RunControl {
public:
    using StopCheck = std::function<bool()>;
    using ProgressSink = std::function<void(unsigned percent)>;

    RunControl() = default;
    RunControl(StopCheck stop, ProgressSink progress, bool quickMode, unsigned coverage);

    // The control of the calling thread's run.
    static const RunControl& current();

    // True once the run should end at the test's next check.
    bool stopRequested() const { return stop_ ? stop_() : false; }
    // Percent of this pass of the test done, 0 to 100.
    void progress(unsigned percent) const {
        if (progress_)
            progress_(percent);
    }
    bool quickMode() const { return quickMode_; }
    // Percent of the full test to cover, 100 unless the client asked for less.
    unsigned coverage() const { return coverage_; }

    // Makes a control the calling thread's current one for its lifetime.
    class Scope {
    public:
        explicit Scope(const RunControl& control);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        const RunControl* previous_;
    };

private:
    StopCheck stop_;
    ProgressSink progress_;
    bool quickMode_ = false;
    unsigned coverage_ = 100;
};

} // namespace NQORVA20::profile

#endif
