#pragma once

namespace tactora::ios {

// The backboardd half's load-time work: the dispatch hook that notices real touches and the
// injection port. Does nothing in any other process.
void startBackboardd();

}  // namespace tactora::ios
