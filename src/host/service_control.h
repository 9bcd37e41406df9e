#pragma once

#include <cstdint>

/// The name under which the service manager knows the server.
inline constexpr char tape_service_name[] = "TarnoTapeSvc";

/// The service's main: registers `ServiceCtrlHandler`, starts the server and reports how that went. Comes back when the server
/// serves, or when a failed start has been cleared away and reported as stopped.
void TapeServiceMain();

/// Takes a control of the service manager. Stops the server, reports and returns 0 for a stop; 120 (not implemented) for
/// everything else, interrogation and shutdown included.
[[nodiscard]] std::uint32_t ServiceCtrlHandler(std::uint32_t control);

/// Hands the process over to the service manager until the service is stopped. False when there is none.
[[nodiscard]] bool RunUnderServiceManager();
