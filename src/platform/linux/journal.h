// SPDX-License-Identifier: Apache-2.0
// The analytics service on the journal; the log on it is `journalLog` of the public header.
#pragma once

#include <memory>

#include <larkspur/platform.h>

namespace larkspur::linuxos {

/// Writes one journal entry per event. Its message id is the same for every event, its name stands
/// in LARKSPUR_EVENT, and each member of the payload in a field named after its key, so that
/// "serviceType" is LARKSPUR_SERVICE_TYPE; a boolean is 1 or 0.
std::shared_ptr<AnalyticsService> makeAnalyticsService();

}  // namespace larkspur::linuxos
