// Register access to the image processor through the comm application: commands, link and setters.
#pragma once

#include <sys/sem.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "ipcam/camera/export.h"
#include "ipcam/comm/mutex.h"

namespace ipcam::camera {

// One register access; the exported parameter tables are arrays of it.
struct param_info {
  std::uint8_t category = 0;  // register category, 0 to 255
  std::uint8_t reserved1[3] = {};
  std::int32_t byte = 0;  // byte number within the category, 0 to 0xffff
  std::uint8_t mask = 0;  // register bits that this entry sets; the others keep their value
  std::uint8_t data = 0;  // new value; after a send, the full register value written
  std::uint8_t reserved10[2] = {};
};
static_assert(sizeof(param_info) == 12);
static_assert(offsetof(param_info, category) == 0 && offsetof(param_info, reserved1) == 1 &&
              offsetof(param_info, byte) == 4 && offsetof(param_info, mask) == 8 &&
              offsetof(param_info, data) == 9 && offsetof(param_info, reserved10) == 10);

// A command packet or a reply packet: entries back to back, each led by its own length in bytes.
struct packet_info {
  std::int32_t count;   // entries in the packet
  std::int32_t length;  // bytes of `data` in use
  std::uint8_t data[128];
};
static_assert(sizeof(packet_info) == 136);
static_assert(offsetof(packet_info, count) == 0 && offsetof(packet_info, length) == 4 &&
              offsetof(packet_info, data) == 8);

// The record shared with the comm application.
struct shm_info {
  std::int32_t status;    // 0 idle, 1 request posted, 2 reply ready, 255 request failed
  std::int32_t comm_pid;  // process id of the comm application; never written by this library
  std::int32_t req_pid;   // process id of the requester; 0 when idle
  std::int32_t count;     // entries in `data`
  std::int32_t length;    // bytes of `data` in use, at most 128
  std::uint8_t data[128];
};
static_assert(sizeof(shm_info) == 148);
static_assert(offsetof(shm_info, status) == 0 && offsetof(shm_info, comm_pid) == 4 &&
              offsetof(shm_info, req_pid) == 8 && offsetof(shm_info, count) == 12 &&
              offsetof(shm_info, length) == 16 && offsetof(shm_info, data) == 20);

// An exposure pattern. Which tables the two row indices select depends on the mode.
struct s_ae_ptn {
  // Row of ae_normal_tbl (mode 0), ae_slow_tbl (1, 2) or manual_shutter_tbl (3).
  std::int32_t shutter;
  // Row of agc_normal_max_gain_tbl (mode 0), agc_slow_max_gain_tbl (1) or manual_gain_tbl (2, 3).
  std::int32_t gain;
  // 0 normal, 1 slow shutter, 2 manual gain with slow rows, 3 manual shutter and gain.
  std::int32_t mode;
  // Maximum frame exposure index: 0 to 4, or 22.
  std::int32_t max_frm_exp;
};
static_assert(sizeof(s_ae_ptn) == 16);

extern "C" {

// Prefix of every message of this class; "dspset" once a DspCommand has been constructed.
IPCAM_CAMERA_API extern char g_prgname[32];

// 1 when signal 10 has reached the handler since the last exchange; one byte.
IPCAM_CAMERA_API extern std::atomic<unsigned char> g_signal_flg;

// Handler of signal 10: sets g_signal_flg. Async-signal-safe.
IPCAM_CAMERA_API void sigusr2_handle(int signal);
}
static_assert(sizeof(g_signal_flg) == 1 && std::atomic<unsigned char>::is_always_lock_free);

// Access to the image processor's registers.
//
// Every operation prints what went wrong, led by g_prgname, and returns -1 for a failure;
// nothing is retried, and a request that is refused before it is sent changes nothing.
// Messages go to standard error, but to standard output that another process is using the
// record, and which register of a command text has failed. do_debug(char*, ...) alone says
// nothing of a text that is too long.
//
// Threads: the command operations and the setters may be called from any thread; each holds the
// object's mutex from its first packet to its last, so their exchanges never interleave. The link
// operations (from get_key() on) take no lock: they are for a program that drives the link by
// itself, one thread at a time and no command beside it. Lock order: docs/architecture.md.
//
// Signals: an operation that makes an exchange leaves signal 10 blocked in the calling thread. A
// program should block it in main() before it starts a thread: camera_ctrl(3).
//
// Cancellation: a thread that holds a lock or the semaphore, has a request in the record or copies
// the flash is not cancelled before the operation returns. Where it returns with something taken,
// from sem_operation(-1, ...) or send_to_comm(), the cancellation waits for the thread's next
// cancellation point. wait_sigusr2() is one: it holds nothing.
//
// An object attaches to the shared record when it is constructed and never again: after the comm
// application has created its semaphore and segment anew, a new object is needed.
class IPCAM_CAMERA_API DspCommand {
 public:
  // Installs the handler of signal 10 and attaches to the comm application. Always completes; when
  // the comm application is absent, messages say so and every exchange fails.
  DspCommand();
  // Detaches. The semaphore and the segment belong to the comm application and stay.
  ~DspCommand();
  DspCommand(const DspCommand&) = delete;
  DspCommand& operator=(const DspCommand&) = delete;

  // --- Register commands ---

  // Applies the first `n` rows (0 to 16) of `table` by read-modify-write: one exchange reads
  // the registers, a second writes them with the rows' `data` merged in under their `mask`. On
  // success `data` of every row holds the value written. Returns 0 or -1. A failure in the
  // first exchange changes no register.
  int execute_abs_cmd(param_info* table, int n);

  // Writes the `data` bytes of `n` rows (1 to 122) to consecutive registers from the first row's
  // on, whole and without reading. Returns 0 or -1.
  int execute_gamma_cmd(param_info* table, int n);

  // Runs a register command list: entries separated by ';', fields by ','; mode 1 reads (category,
  // byte number), mode 2 writes (category, byte number, mask, data). Numbers are decimal,
  // hexadecimal ("0x") or octal ("0"). At most 16 entries and 256 characters. `list` is split in
  // place. `result` receives one byte per entry: the value read, for a write the value before it.
  // Returns the number of registers read (mode 1), 1 (mode 2; 0 when
  // the write reply is empty), or -1.
  int execute_rw_cmd(int mode, char* list, unsigned char* result);

  // Runs a register command text, "r," or "w," followed by a list as above. This overload works on
  // a copy of the text; a text of more than 256 characters is not run and gives 0.
  int do_debug(char* text, char* result);
  // The same, splitting the caller's text in place.
  int do_debug(unsigned char* text, unsigned char* result);
  // The same for the rows of a table. Returns as execute_rw_cmd().
  int do_debug(param_info* table, unsigned char* result, int mode, int n);

  // Appends one 6-byte entry to a command packet: type 1 read, 2 write. Returns 0, or -1 when the
  // packet then holds more than 16 entries or 127 bytes.
  int add_cmd_packet(int type, param_info entry, packet_info* packet);
  // Set all fields, and all data bytes, to 0.
  void clear_param_info(param_info* entry);
  void clear_packet_info(packet_info* packet);

  // Packet-dump hooks; they do nothing.
  void prt_gcmdbuf(int direction, packet_info* packet);
  void dummy_reply(int reserved, packet_info* command, packet_info* reply);

  // --- Flash ---

  // Sends the sub CPU the all-to-SDRAM request. Returns 0 when all of it was acknowledged, else -1.
  int execute_alltosdram();

  // Copies the parameter area and its variant block between memory and flash: 1 stores
  // to flash, 0 loads from flash. Returns 0, a store then being on the device, or -1 at
  // the first failure; a copy that fails halfway is not undone. It uses the devices
  // alone and takes no lock: one call at a time.
  int do_flash(unsigned char flag);

  // --- Picture ---
  // Setters return 0 when the registers were written, -1 when the value was refused or the exchange
  // failed. A number text is decimal, hexadecimal or octal, with nothing behind the number.

  int do_saturation(unsigned char* text);  // 0 to 255; 128 is neutral
  int do_contrast(unsigned char* text);    // 0 to 255; 128 is neutral
  int do_sharpness(unsigned char* text);   // 0 to 255; 128 is neutral
  int do_brightness(unsigned char* text);  // 0 to 255
  int do_hue(unsigned char* text);         // -128 to 127
  int do_colorbar(unsigned char* text);    // 0 off, 1 on
  int do_effect(unsigned char* text);      // "monochrome" or "negative" followed by 0 or 1
  int do_gamma(int curve);                 // 0 to 6
  int do_ygamma(unsigned char* text);      // luma curve: 'e' or 'c' followed by 0 to 7
  int do_cgamma(unsigned char* text);      // chroma curve: 'e' or 'c' followed by 0 to 7

  // --- White balance ---

  // Mode by its leading keyword: "atwpro", "atw", "manual", "onepush", "trgon", "indoor",
  // "outdoor", "fluorescent", "mercurylampmega" or "mercurylampsd".
  int do_whitebalance(unsigned char* text);
  // Manual gains as levels 0 to 255; a higher level is a lower register gain (10170 down to 1500).
  int do_rgain(unsigned int level);
  int do_bgain(unsigned int level);
  // Preset 1, as register gains.
  int do_rbgain_preset1(unsigned short red, unsigned short blue);

  // --- Compensation ---

  int do_blcomp(int value);                 // backlight compensation: 0, 2 or 4
  int do_expcomp(unsigned char* text);      // offset as a two's-complement byte, 0 to 255
  int do_aereference(unsigned char* text);  // reference level, -9 to 9

  // --- Exposure ---

  // Applies one exposure pattern. The mode and maximum frame exposure are sent after the tables; a
  // failure of those two is printed, not returned.
  int do_shutter_gain(s_ae_ptn pattern);
  int do_expmode(int mode);                  // 0 to 3, as s_ae_ptn::mode
  int do_max_frm_exp(int index);             // 0 to 4 (30, 15, 8, 4, 2) or 22 (22)
  int do_autoexposure(unsigned char* text);  // "auto", or "manual" followed by 0 to 65535
  int do_shutter(unsigned int value);        // 0 to 10000
  int do_gain(int level);                    // 0 to 6
  int do_flickerless(int value);             // 0 to 5
  int do_autoslowshutter(bool on);           // off sends nothing
  int do_agc(unsigned char* text);           // "on" or "off"
  int do_agc_max_gain(int level);            // 0 to 13
  int do_miris_mode(bool on);                // iris held open
  // Sends the iris modifier and scale tables as stored; the arguments are only printed.
  int do_iris_modifier(int shutter, int exp, int reserved, bool lf);

  // --- Sensor, day/night ---

  int do_binning(bool on);                 // sensor readout: binned, or all pixels
  int do_sensormode(unsigned char* text);  // "quadvga" or "vga"
  int do_dnmode(unsigned char* text);      // "disable", "auto", "on" or "off"
  int do_dnlevel(unsigned char* text);     // "high" or "low"

  // --- Link ---

  // Key of the shared objects, from the file "/tmp/comm.log". Returns 0 or -1.
  int get_key(int* key);
  // Finds the semaphore set and the segment and attaches the segment of `size` bytes. Returns 0 or
  // -1; an output whose step failed is left as it was.
  int getinfo_ipc(int* sem_id, int* shm_id, int size, std::intptr_t* shm_addr);
  // One operation on semaphore 0, waiting at most 5 seconds. Returns 0 or -1.
  int sem_operation(int op, short flags);
  // Phase 0: the record is free for a request. Phase 2: the reply is
  // this requester's. Returns 0 or -1.
  int check_ipc(shm_info* record, int phase);
  // Makes the record idle; `comm_pid` stays.
  void clean_ipc(shm_info* record);
  // Sends signal 10 to one process. Returns 0 or -1.
  int send_sigusr2(int pid);
  // Waits for signal 10, 0 without limit, and leaves it blocked in the calling thread. Returns the
  // signal number; negative at the limit, on failure, or when the signal has reached the handler
  // instead (g_signal_flg is 1) and none is pending.
  int wait_sigusr2(long seconds);
  // Posts one request and rings the doorbell. Returns 0 or -1. A doorbell that could not be rung
  // leaves the record posted. Signal 10 stays blocked in the calling thread.
  int send_to_comm(packet_info* packet);
  // Waits one second for the reply, copies it into `packet` and
  // makes the record idle. Returns 0 or -1.
  int get_from_comm(packet_info* packet);

  // Keeps a revision number that nothing in this library reads. Returns 0.
  int setSyRevision(int revision);

 private:
  friend class ControlThread;  // detaches its object before the last workers are done with it

  // Detaches ahead of the destruction, after the command under way; commands fail from then on.
  IPCAM_CAMERA_LOCAL void detach() IPCAM_EXCLUDES(mutex);
  IPCAM_CAMERA_LOCAL bool operate_semaphore(int op, short flags);
  IPCAM_CAMERA_LOCAL int post_request(const packet_info& packet);
  IPCAM_CAMERA_LOCAL int fetch_reply(packet_info* packet);
  IPCAM_CAMERA_LOCAL int exchange() IPCAM_REQUIRES(mutex);
  IPCAM_CAMERA_LOCAL int apply_table(param_info* table, int n) IPCAM_REQUIRES(mutex);
  IPCAM_CAMERA_LOCAL int write_block(const param_info* table, int n) IPCAM_REQUIRES(mutex);
  IPCAM_CAMERA_LOCAL int run_list(int mode, char* list, unsigned char* result)
      IPCAM_REQUIRES(mutex);
  IPCAM_CAMERA_LOCAL int request_alltosdram() IPCAM_REQUIRES(mutex);
  IPCAM_CAMERA_LOCAL void clear_packets() IPCAM_REQUIRES(mutex);

  // Clear between commands: each clears both when it ends.
  packet_info command_packet IPCAM_GUARDED_BY(mutex) = {};
  packet_info reply_packet IPCAM_GUARDED_BY(mutex) = {};
  sembuf sem_op = {};
  shm_info* shm = nullptr;
  std::int32_t sem_id = -1;
  std::int32_t shm_id = -1;
  ipcam::comm::Mutex mutex;
  std::int32_t sy_revision = 0;
};

}  // namespace ipcam::camera
