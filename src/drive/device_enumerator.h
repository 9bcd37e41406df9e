#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// Finds the link names that can be opened. Stateless: each call looks at the system anew. Results have no duplicates and
/// stand in discovery order. Failures of the registry pass through as exceptions.
namespace CDeviceEnumerator {

[[nodiscard]] std::vector<std::string> FindTapeDrives();
[[nodiscard]] std::vector<std::string> FindMediumChangers(bool include_driverless);
[[nodiscard]] std::vector<std::string> FindDevicesByPeripheralType(const std::string& peripheral_type, bool include_driverless);
/// Appends the links of present changers that no driver serves, making a name for each.
void FindDriverlessChangers(std::vector<std::string>& links);
/// Makes the DOS name of prefix and number point at the target; returns its link name.
[[nodiscard]] std::string DefineDeviceLink(const std::string& target, const std::string& prefix, std::uint32_t number);

}  // namespace CDeviceEnumerator
