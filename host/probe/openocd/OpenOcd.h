#pragma once

#include <string>
#include <string_view>

#include "host/probe/ApAccess.h"
#include "host/probe/TcpStream.h"

namespace host {

// A chip through an OpenOCD that runs already, by its Tcl port: for adapters that are not driven here.
// OpenOCD owns the debug port, so this begins at the access ports; each access is a round trip to the
// adapter. OpenOCD tells in its own output why something failed.
class OpenOcd final : public ApAccess {
 public:
  static constexpr std::uint16_t kUsualPort = 6666;

  explicit OpenOcd(const TcpAddress& address);

  void Connect() override;
  void Close() noexcept override {}
  std::uint32_t ReadAp(ApRegister from) override;
  void WriteAp(ApRegister to, std::uint32_t value, AfterWrite after) override;
  void ReadApBlock(ApRegister from, std::span<std::uint32_t> words) override;
  void WriteApBlock(ApRegister to, std::span<const std::uint32_t> words) override;
  void SetResetPin(bool high) override;
  [[nodiscard]] Traffic Counted() const override { return traffic; }

 private:
  // The result of a Tcl script. Throws ProbeError with `what` when it fails.
  std::string Run(const std::string& script, const std::string& what);
  std::string Ask(std::string_view line);

  TcpStream stream;
  std::string dap;  // OpenOCD's name of the debug access port
  Traffic traffic;
};

}  // namespace host
