// camctl doctor and flash.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <nlohmann/json.hpp>

#include "tools/commands.h"
#include "tools/link_state.h"
#include "tools/record_text.h"

namespace ipcam::tools {

namespace {

Finding exchange_finding(Context& context) {
  const auto start = std::chrono::steady_clock::now();
  try {
    port_of(context, "doctor")->read(registers::address("sensor_mode"), "doctor");
  } catch (const CommandError& error) {
    return {.subject = "exchange",
            .is_good = false,
            .detail = error.what(),
            .advice = "look at the comm application and at the link to the sub CPU",
            .code = error.code()};
  }
  const auto elapsed = std::chrono::steady_clock::now() - start;
  const auto us = std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count();
  return {"exchange", true, "a register was read in " + std::to_string(us) + " us"};
}

bool answered_yes(const std::string& question) {
  std::cerr << question << " [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace

void doctor(Context& context) {
  std::vector<Finding> findings = examine_link();
  if (std::ranges::all_of(findings, &Finding::is_good))
    findings.push_back(exchange_finding(context));
  const bool has_settings = read_stored_record().has_value();
  findings.push_back({.subject = "stored settings",
                      .is_good = has_settings,
                      .detail = has_settings ? "all.conf can be read" : "all.conf cannot be read",
                      .advice = "set IPCAM_CONFIG_DIR to the folder of all.conf, or write one: "
                                "camctl config init",
                      .code = kUsage});
  for (const Finding& finding : findings) {
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
  // The first that fails decides the exit code.
  const auto bad = std::ranges::find(findings, false, &Finding::is_good);
  if (bad == findings.end()) return;
  throw CommandError(bad->code, "doctor: " + bad->subject + ": " + bad->advice);
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
