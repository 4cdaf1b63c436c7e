// The per-version migration that runs once after an update, before anything
// else of the start-up: it re-stores the credentials in the current way.
// Driven by the setting "<title>.lastMigratedVersion". Main thread.
#pragma once

namespace vh {

class VHStartupMigration {
  public:
    static void migrate();
    static void to2_6_0();
};

}  // namespace vh
