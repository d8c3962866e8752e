// camctl doctor and flash.
#include <unistd.h>

#include <chrono>
#include <iostream>
#include <thread>

#include "tools/commands.h"
#include "tools/link_state.h"
#include "tools/record_text.h"

namespace ipcam::tools {

namespace {

// One look at one thing. The first that fails decides the exit code.
struct Finding {
  std::string subject;
  bool is_good;
  std::string detail;
  std::string advice = {};
  ExitCode code = kNoCommApplication;
};

constexpr char kStartAdvice[] = "start the comm application; on a workstation: camsim run";
constexpr char kRestartAdvice[] = "restart the comm application";
constexpr char kRightsAdvice[] = "run as the user of the comm application, or as root";

// A record that is in use for one exchange looks like one that is stuck.
LinkState look_past_an_exchange() {
  constexpr auto kExchangeLimit = std::chrono::milliseconds(1100);
  const LinkState link = look_at_link();
  if (!link.record || link.is_idle()) return link;
  std::this_thread::sleep_for(kExchangeLimit);
  return look_at_link();
}

Finding record_finding(const LinkState& link) {
  if (link.is_idle()) return {"record", true, "idle"};
  const std::string detail = "status " + std::to_string(link.record->status) +
                             " since a request of " +
                             process_text(link.record->req_pid, link.requester_alive);
  const std::string advice = link.requester_alive
                                 ? "wait for that process, or restart it"
                                 : "restart the comm application, which clears the record";
  return {"record", false, detail, advice, kBusy};
}

Finding exchange_finding(Context& context) {
  const auto start = std::chrono::steady_clock::now();
  try {
    BorrowedPort(context, "doctor")->read(registers::address("sensor_mode"), "doctor");
  } catch (const CommandError& error) {
    return {"exchange", false, error.what(),
            "look at the comm application and at the link to the sub CPU", error.code()};
  }
  const auto elapsed = std::chrono::steady_clock::now() - start;
  const auto us = std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count();
  return {"exchange", true, "a register was read in " + std::to_string(us) + " us"};
}

std::vector<Finding> examine_link(Context& context) {
  const LinkState link = look_past_an_exchange();
  std::vector<Finding> findings;
  const auto add = [&](Finding finding) {
    findings.push_back(std::move(finding));
    return findings.back().is_good;
  };
  const auto present = [](bool is_there) { return is_there ? "there" : "missing"; };
  add({"key file", link.has_key_file,
       std::string(wire::kKeyFile) + " is " + present(link.has_key_file), kStartAdvice});
  add({"semaphore", link.has_semaphore, present(link.has_semaphore), kStartAdvice});
  add({"segment", link.has_segment, present(link.has_segment), kStartAdvice});
  if (!link.has_semaphore || !link.has_segment) return findings;
  const bool may_use = link.may_use_semaphore && link.may_use_segment;
  add({"access", may_use, may_use ? "may read and write both" : "may not read and write both",
       kRightsAdvice, kUsage});
  if (!may_use) return findings;
  if (!add({"segment size", link.record.has_value(), std::to_string(link.segment_size) + " bytes",
            kRestartAdvice})) {
    return findings;
  }
  const bool is_alive = add({"comm application", link.comm_alive,
                             process_text(link.record->comm_pid, link.comm_alive), kRestartAdvice});
  const bool is_idle = add(record_finding(link));
  if (is_alive && is_idle) add(exchange_finding(context));
  return findings;
}

bool answered_yes(const std::string& question) {
  std::cerr << question << " [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace

void doctor(Context& context) {
  std::vector<Finding> findings = examine_link(context);
  const bool has_settings = read_stored_record().has_value();
  findings.push_back(
      {"stored settings", has_settings,
       has_settings ? "all.conf can be read" : "all.conf cannot be read",
       "set IPCAM_CONFIG_DIR to the folder of all.conf, or write one: camctl config init", kUsage});
  const Finding* first_bad = nullptr;
  for (const Finding& finding : findings) {
    if (!finding.is_good && first_bad == nullptr) first_bad = &finding;
    Json json = {
        {"subject", finding.subject}, {"good", finding.is_good}, {"detail", finding.detail}};
    std::string text = finding.is_good ? context.out.styled(Output::Style::kGood, "good  ")
                                       : context.out.styled(Output::Style::kBad, "BAD   ");
    text += padded(finding.subject, 18) + finding.detail;
    if (!finding.is_good) {
      json["advice"] = finding.advice;
      text += "\n      " + finding.advice;
    }
    context.out.result(json, text);
  }
  if (first_bad == nullptr) return;
  throw CommandError(first_bad->code, "doctor: " + first_bad->subject + ": " + first_bad->advice);
}

void flash(Context& context, bool is_store, bool yes) {
  const std::string tried = is_store ? "flash store" : "flash load";
  if (!yes) {
    if (isatty(STDIN_FILENO) == 0)
      throw CommandError(kUsage, tried + ": no terminal to ask on, use --yes");
    const bool is_confirmed = answered_yes(
        is_store ? "camctl: store the parameter area to flash, over what is there?"
                 : "camctl: load the parameter area from flash, over what is in memory?");
    if (!is_confirmed) throw CommandError(kUsage, tried + ": not confirmed, nothing done");
  }
  // The copy itself needs no comm application; the object only says that it found none.
  camera::DspCommand dsp;
  if (dsp.do_flash(is_store ? 1 : 0) != 0)
    throw CommandError(kRefused, tried + ": the copy failed, see above");
  context.out.result({{"action", is_store ? "store" : "load"}},
                     is_store ? "stored to flash" : "loaded from flash");
}

void flash_sdram(Context& context) {
  require_link("flash sdram");
  const auto start = std::chrono::steady_clock::now();
  camera::DspCommand dsp;
  if (dsp.execute_alltosdram() != 0)
    throw exchange_failure("flash sdram", std::chrono::steady_clock::now() - start);
  context.out.result({{"action", "sdram"}}, "sent: all to SDRAM");
}

}  // namespace ipcam::tools
