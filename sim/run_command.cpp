// `camsim run`: a comm application with whatever its options bring about.
#include "sim/run_command.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <optional>

#include "sim/comm_application.h"
#include "sim/input_text.h"
#include "sim/picture.h"
#include "sim/private_camera.h"
#include "sim/register_file.h"
#include "sim/scenario.h"
#include "sim/trace_line.h"
#include "workstation/replace_file.h"

namespace ipcam::sim {
namespace {

using Clock = std::chrono::steady_clock;

// Long enough for the writes of one setting to be over, short enough to seem immediate.
constexpr std::chrono::milliseconds kPictureDelay{200};

// Between two looks at the standard input, whose steps are written by hand or by a script; and,
// without it, whether a requester was killed, which would leave the record busy for everyone.
constexpr int kInputLook_ms = 20;
constexpr int kRecordLook_ms = 200;

// Every register that is not 0, or not as a new switchboard has it: with --registers the file gives
// the same registers again.
void save_registers(const Switchboard& board, const std::string& path) {
  const SharedSwitchboard fresh;
  RegisterMap registers;
  for (std::uint32_t category = 0; category < std::size(board.registers); ++category) {
    for (std::uint32_t byte = 0; byte < std::size(board.registers[0]); ++byte) {
      const Address address{static_cast<std::uint8_t>(category), static_cast<std::uint16_t>(byte)};
      const std::uint8_t value = board.reg(address);
      if (value != 0 || fresh->reg(address) != 0) registers[address] = value;
    }
  }
  workstation::replace_file(path, register_file_text(registers));
}

class Run {
 public:
  explicit Run(const RunOptions& options);
  void serve();

 private:
  void begin_to_serve();

  // When the next step is due, if its exchanges have been seen.
  std::optional<Clock::time_point> step_time() const;
  void play(const ScenarioStep& step);
  void play_input();
  void restart(int down_ms);

  void look_at_picture();
  void draw_picture();

  // Until the next step, picture or look is due.
  int limit_ms() const;

  const RunOptions& options_;
  SharedSwitchboard board_;
  std::optional<CommApplication> application_;
  std::vector<ScenarioStep> steps_;
  std::size_t next_step_ = 0;
  Clock::time_point quiet_since_;
  bool input_is_open_;
  std::string input_;                     // what has been read of the next line
  std::optional<PictureSettings> shown_;  // as the registers were at the last look
  std::optional<Clock::time_point>
      picture_time_;  // when they are to be drawn, if they have not been
};

Run::Run(const RunOptions& options) : options_(options), input_is_open_(options.steps_from_input) {
  if (!options.registers.empty()) {
    for (const auto& [address, value] : read_register_file(options.registers))
      board_->set_reg(address, value);
  }
  for (const std::string& text : options.settings) {
    const RegisterValues row = parse_register_value("--set", text);
    board_->set_reg(row.address, row.values[0]);
  }
  for (const std::string& text : options.faults) {
    const PlannedFault fault = parse_fault("--fault", text);
    if (board_->arm(fault.fault, fault.plan)) continue;
    throw UsageError("--fault: too many faults (at most " +
                     std::to_string(Switchboard::kFaultSlots) + ")");
  }
  if (!options.scenario.empty()) steps_ = load_scenario(options.scenario);
  // Better now than at the end of a long session.
  if (!options.save_registers.empty()) workstation::check_replaceable(options.save_registers);
}

// Folders of the files that it leaves to its caller, which must stay where they are.
workstation::Paths kept_folders(const RunOptions& options) {
  workstation::Paths folders;
  for (const std::string& file : {options.save_registers, options.picture}) {
    if (file.empty()) continue;
    const auto path = std::filesystem::weakly_canonical(std::filesystem::absolute(file));
    folders.push_back(path.parent_path());
    if (folders.back() == "/tmp" || folders.back() == "/var/tmp")
      throw UsageError(file + ": a private camera has a " + folders.back().string() +
                       " of its own; take a folder below it, or elsewhere");
  }
  return folders;
}

void Run::begin_to_serve() {
  application_.emplace(*board_);
  if (options_.keep) application_->leave_objects();
  if (options_.trace || options_.json) {
    application_->on_exchange([this](const Exchange& exchange) {
      std::puts((options_.json ? trace_json(exchange, board_->trace_end - 1) : trace_line(exchange))
                    .c_str());
      std::fflush(stdout);
    });
  }
  quiet_since_ = Clock::now();
  if (options_.on_serving) return options_.on_serving();
  std::fprintf(stderr, "camsim: serving requests, process %d\n", static_cast<int>(getpid()));
}

std::optional<Clock::time_point> Run::step_time() const {
  if (next_step_ == steps_.size() || board_->trace_end < steps_[next_step_].exchanges)
    return std::nullopt;
  return quiet_since_ + std::chrono::milliseconds(steps_[next_step_].pause_ms);
}

void Run::play(const ScenarioStep& step) {
  using Action = ScenarioStep::Action;
  std::fprintf(stderr, "camsim: after %u exchanges: %s\n", board_->trace_end.load(),
               step.text.c_str());
  for (const RegisterValues& row : step.registers) {
    if (step.action == Action::set) {
      board_->set_reg(row.address, row.values[0]);
    } else if (!board_->script(row.address.category, row.address.byte, row.values)) {
      throw std::runtime_error(step.where + ": too many values or scripts (at most 256, " +
                               std::to_string(Switchboard::kScriptSlots) + ")");
    }
  }
  for (const PlannedFault& fault : step.faults) {
    if (board_->arm(fault.fault, fault.plan)) continue;
    throw std::runtime_error(step.where + ": too many faults at a time (at most " +
                             std::to_string(Switchboard::kFaultSlots) + ")");
  }
  if (step.action == Action::restart) restart(static_cast<int>(step.down_ms));
}

// A line that is no step is reported and skipped: whoever writes them wants the camera to go on.
void Run::play_input() {
  pollfd input{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
  if (!input_is_open_ || poll(&input, 1, 0) <= 0) return;
  char bytes[512];
  const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
  input_is_open_ = count > 0;
  if (count > 0) input_.append(bytes, static_cast<std::size_t>(count));
  if (!input_is_open_ && !input_.empty()) input_ += '\n';  // the last line may lack its end
  for (std::size_t end = input_.find('\n'); end != std::string::npos; end = input_.find('\n')) {
    try {
      play(parse_step_now("standard input", input_.substr(0, end)));
    } catch (const std::exception& error) {
      if (!application_) throw;  // a restart that did not succeed
      std::fprintf(stderr, "camsim: %s\n", error.what());
    }
    input_.erase(0, end + 1);
  }
}

void Run::restart(int down_ms) {
  application_->leave_objects();
  application_.reset();
  // What ends the simulator ends the wait, too, and is left for the next look at signals.
  sigset_t stops;
  sigemptyset(&stops);
  for (const int signal : {SIGINT, SIGTERM}) sigaddset(&stops, signal);
  const timespec limit{.tv_sec = down_ms / 1000, .tv_nsec = down_ms % 1000 * 1000000L};
  if (const int signal = sigtimedwait(&stops, nullptr, &limit); signal > 0) raise(signal);
  begin_to_serve();
}

void Run::look_at_picture() {
  if (options_.picture.empty()) return;
  const PictureSettings now = picture_settings(*board_);
  if (shown_ == now) return;
  shown_ = now;
  picture_time_ = Clock::now() + kPictureDelay;
}

void Run::draw_picture() {
  write_picture(*shown_, options_.picture);
  picture_time_.reset();
}

int Run::limit_ms() const {
  const Clock::time_point next = std::min(step_time().value_or(Clock::time_point::max()),
                                          picture_time_.value_or(Clock::time_point::max()));
  const int look_ms = input_is_open_ ? kInputLook_ms : kRecordLook_ms;
  if (next == Clock::time_point::max()) return look_ms;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(wait.count(), 0, look_ms));
}

void Run::serve() {
  look_at_picture();
  if (picture_time_) draw_picture();  // before anybody is told that the camera is there

  begin_to_serve();
  CommApplication::Event event{};
  do {
    while (step_time() && *step_time() <= Clock::now()) play(steps_[next_step_++]);
    play_input();
    look_at_picture();
    if (picture_time_ && *picture_time_ <= Clock::now()) draw_picture();
    event = application_->serve_one(limit_ms());
    if (event == CommApplication::Event::doorbell) quiet_since_ = Clock::now();
    if (event == CommApplication::Event::quiet) application_->clear_abandoned();
  } while (event != CommApplication::Event::stop);
  application_.reset();

  if (picture_time_) draw_picture();
  if (!options_.save_registers.empty()) save_registers(*board_, options_.save_registers);
}

}  // namespace

// Validity mark 1 first, then plausible register values.
void write_factory_files(const std::filesystem::path& directory) {
  using namespace std::string_literals;
  // The third byte starts the EVR worker; from the ninth on hue, then gain coefficients.
  const std::string camera =
      "\1\0\1\x80\x0c\xc8\0\0"s + std::string(16, '\x80') + std::string(16, '\x40');
  for (const auto& [name, bytes] :
       {std::pair("AdjCamera.txt", camera + std::string(8, '\0')),
        std::pair("AdjWbHalfPixels.txt", "\1\0\x40\x0e\0\x10\xed\7\0\0\0\0"s),
        std::pair("AdjWbAllPixels.txt", "\1\0\x42\x0e\0\x10\xf0\7\0\0\0\0"s)}) {
    std::ofstream file(directory / name, std::ios::binary);
    file << bytes << std::flush;
    if (!file) throw std::runtime_error((directory / name).string() + ": cannot be written");
  }
}

void run(const RunOptions& options) {
  Run run(options);  // its files are looked for where the caller is
  if (options.is_private) enter_sandbox(kept_folders(options));
  if (options.with_factory_files) write_factory_files("/var/tmp");
  run.serve();
}

}  // namespace ipcam::sim
