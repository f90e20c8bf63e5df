#include "reset.h"

#include "fake_deadline.h"
#include "fake_endpoint.h"
#include "fake_ffmpeg.h"
#include "fake_windows.h"
#include "journal.h"
#include "log_recorder.h"

namespace fakes {

void ResetAll()
{
    fakewin::Reset();
    AudioSystem::Instance().Reset(); // installs its class factory, which fakewin::Reset removes
    fakeffmpeg::Reset();
    ClearJournal();
    LogRecorder::Instance().Clear();
    ResetTimeouts();
}

} // namespace fakes
