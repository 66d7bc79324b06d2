#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "common/machine.h"
#include "common/poll_processor.h"
#include "leaf/lumet/link/command_queue.h"
#include "leaf/lumet/link/device_file.h"
#include "leaf/lumet/link/dsp_records.h"
#include "leaf/lumet/link/sample_clock.h"
#include "leaf/lumet/link/set_up_orders.h"

// The link to the signal processor: sends it commands, takes its records apart and calls one
// listener operation for each. The device gives whole records on each read, so nothing is carried
// over from one read to the next; what is cut off or too short is dropped silently.
//
// There is no time-out: a processor that falls silent simply sends no samples. A write that fails
// is tried again until it works; the first failure prints a line, and so does the first success
// after it.
//
// A device that hangs up prints a line, and the head does without it. Once a second it is checked
// and opened again. When it is back, it is reset and gets all that sets it up, as last ordered;
// flashes and the like that were ordered while it was away are dropped.
class DSPDevice : public PollItem, public PollTimer {
 public:
  // The bounds of the link, in bytes, and what happens beyond them.
  struct Bounds {
    // Of a payload; the rest is cut off.
    static constexpr std::size_t kPayload = 404;
    // Of one write, which holds whole records; the others follow with the next write.
    static constexpr std::size_t kPacket = 16384;
    // Of all commands that wait. Those beyond are dropped; what sets the processor up is sent again
    // when the queue is empty. A line is printed.
    static constexpr std::size_t kQueue = std::size_t{1} << 20;
    // Of the queue, as far as register commands may fill it, so that room is left for light. Those
    // beyond are dropped, and their caller learns of it.
    static constexpr std::size_t kRegisterQueue = kQueue - (std::size_t{64} << 10);
  };
  // How long the end of the process may wait for the safe state to be written.
  static constexpr auto kLongestStop = std::chrono::seconds(1);

  // Receives what the processor sends. What is handed over is valid only during the call. Commands
  // may be sent from inside any of these. A std::exception thrown here is printed, and drops the
  // rest of that read.
  class Listener {
   public:
    virtual ~Listener() = default;
    // Every record, before its own operation below.
    virtual void GotRecord(const RecordTime& /*time*/, std::uint16_t /*code*/,
                           const std::uint8_t* /*payload*/, std::uint16_t /*length*/) {}
    virtual void GotUnknownMessage(std::uint16_t /*code*/, const std::uint8_t* /*payload*/,
                                   std::uint16_t /*length*/) {}
    virtual void GotBadCommand(const std::string& /*text*/) {}
    virtual void GotLegacyData(LegacySample& /*sample*/) {}
    virtual void GotWordListA(const RecordTime& /*time*/,
                              const std::vector<std::uint16_t>& /*words*/) {}
    virtual void GotWordListB(const RecordTime& /*time*/,
                              const std::vector<std::uint16_t>& /*words*/) {}
    virtual void GotInitMessage(const std::string& /*text*/) {}
    virtual void GotDebugMessage(const std::string& /*text*/) {}
    virtual void GotInfoMessage(const std::string& /*text*/) {}
    virtual void GotPong(const std::string& /*text*/) {}
    virtual void GotVersion(const std::string& /*dsp*/, const std::string& /*fpga*/) {}
    virtual void GotFatalMessage(const std::string& /*text*/) {}
    virtual void GotCounter(std::uint32_t /*count*/) {}
    virtual void GotWordListC(const std::vector<std::uint16_t>& /*words*/) {}
    virtual void GotRegisterWritten(std::uint16_t /*address*/, std::uint16_t /*value*/) {}
    virtual void GotRegisterValue(std::uint16_t /*address*/, std::uint16_t /*value*/) {}
    virtual void GotData(DataSample& /*sample*/) {}
    // A `count` of 0 ends the capture.
    virtual void GotRawCapture(std::uint32_t /*index*/, const std::uint8_t* /*bytes*/,
                               std::uint32_t /*count*/) {}
    // AllOff has removed `count` register reads from the queue; there will be no answers to them.
    virtual void LostRegisterReads(std::size_t /*count*/) {}
    // The device has hung up; nothing that it was asked will be answered.
    virtual void LostDevice() {}
  };

  // Opens the device. Throws ErrnoError. If `machine` is given, which must outlive this, the device
  // is opened again with superuser rights where the account's own do not suffice.
  explicit DSPDevice(const std::string& path, const Machine* machine = nullptr);
  // Takes over a descriptor that is open already, one end of a SOCK_SEQPACKET pair. Its end of
  // file prints a line and ends the loop, since the processor is gone.
  explicit DSPDevice(int descriptor);

  // Returns the previous listener. Without one, what is read is dropped.
  Listener* SetListener(Listener* listener);

  // Each queues one command; the loop writes it.
  void RequestVersion();
  void SetTimingConfig(const TimingConfig& config);
  void SetBiasConfig(const BiasConfig& config);
  void StartRectFlash();
  void StartMultiPhaseFlash();
  void StartInductionFlash();
  void StartDarkPulse();
  void BreakSequence();
  void ResetSequencer();
  // These return false for a command that was dropped: there is no room for it, or no device.
  bool WriteRegister(std::uint16_t address, std::uint16_t value);
  bool ReadRegister(std::uint16_t address);
  // `when`: 0 now, 1 measure, 2 flash, 3 dark; anything else means now.
  void StartRawCapture(std::uint32_t size, std::uint32_t when);
  // This head works with format 2 alone.
  void SetOutputFormat(std::uint32_t format);
  void RedModulationOn();
  void RedModulationOff();
  void SetGpio(std::uint16_t line, std::uint16_t value);
  void TestVectorOn();
  void TestVectorOff();

  // Takes the processor to its safe state. This goes ahead of everything that waits, which is
  // removed from the queue; of that, the loop later sends only what sets up the processor, light
  // aside.
  // Writes at once, since at the end of the process the loop no longer turns.
  void AllOff();
  // Writes what is queued, until `end` at the latest. Returns whether all of it was written.
  bool Drain(std::chrono::steady_clock::time_point end);

  // Every command ends up here. A payload is cut off at its bound. Returns false if the command was
  // dropped.
  bool Send(std::uint16_t code, const void* payload, std::size_t length);

  int GetFD() override { return file.GetFD(); }
  void HandleEvents(int revents) override;
  void HandleRead() override;
  void HandleWrite() override;
  // Tries again what failed.
  void Expired() override;
  const char* GetName() override { return "DSPDevice"; }

 private:
  bool SendBytes(DSPCode code, std::span<const std::uint8_t> payload);
  bool SendWord(DSPCode code, std::uint32_t word);
  bool SendPair(DSPCode code, std::uint16_t first, std::uint16_t second);
  // What was dropped of what sets the processor up is sent again as it is then in force, when the
  // queue is empty.
  void SendOwed();

  // Puts a command into the queue, if there is room.
  bool Push(std::uint16_t code, std::span<const std::uint8_t> payload);

  // Leaves a device that takes nothing, or gives nothing, alone for a moment.
  void Rest();
  void NothingRead();
  void UpdateEvents();
  void HungUp();
  void EndOfFile();
  // Goes on with a device that has hung up, if it is back.
  bool GoOn();
  void SetUpAgain();

  void DecodeRecords(std::size_t count);
  // Handles the record at the front of `bytes`, which holds at least a header; returns its length
  // with header and padding.
  std::size_t DecodeRecord(std::span<const std::uint8_t> bytes);
  void Dispatch(const RecordHeader& header, const std::uint8_t* payload);
  void DispatchVersion(const std::string& text);
  void DispatchSample(const RecordTime& stamp, const std::uint8_t* payload);
  void DispatchBatch(const RecordTime& stamp, const std::uint8_t* payload);
  void DispatchRawCapture(const std::uint8_t* payload, std::uint16_t length);

  DeviceFile file;
  Listener* listener = nullptr;
  std::vector<std::uint8_t> read_buffer;
  CommandQueue write_queue;
  SetUpOrders orders;
  bool is_away = false;       // the device has hung up
  bool has_ended = false;     // one end of a pair, at its end of file
  bool is_resting = false;    // until the timer expires, nothing is written by the loop
  bool write_failed = false;  // and no write has worked since
  bool is_overfull = false;   // a command that is no register command was dropped
  bool is_deaf = false;       // until the timer expires, nothing is read
  bool read_failed = false;   // and no read has worked since
  int reads_in_vain = 0;      // in a row
  SampleClock sample_clock;
};
