// The alert presenter that bridge tests hand to a project controller: the
// recording presenter under the name those tests know.
#pragma once

#include "RecordingAlertPresenter.h"

namespace test {

using FakeAlertPresenter = RecordingAlertPresenter;

} // namespace test
