#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "common/poll_processor.h"
#include "common/stream_file.h"
#include "leaf/lumet/link/dsp_records.h"
#include "leaf/lumet/link/sample_clock.h"

// The link to the signal processor: sends it commands, takes its records apart and calls one
// listener operation for each. The device gives whole records on each read, so nothing is carried
// over from one read to the next; what is cut off or too short is dropped without a word.
//
// There is no time-out and no retry: a processor that falls silent simply sends no samples.
class DSPDevice : public PollItem {
 public:
  // Hears what the processor sends. What is handed over is valid only for the call. Commands may
  // be sent from inside any of these. A std::exception thrown here is printed, and drops the rest
  // of that read.
  class Listener {
   public:
    virtual ~Listener() = default;
    // Every record, ahead of its own operation below.
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
  };

  // Opens the device. Throws ErrnoError.
  explicit DSPDevice(const std::string& path);
  // Takes over a descriptor that is open already, one end of a SOCK_SEQPACKET pair. Its end of
  // file prints a line and ends the loop, for there is no processor any more.
  explicit DSPDevice(int descriptor);

  // Returns the listener before. Without one, what is read is dropped.
  Listener* SetListener(Listener* new_listener);

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
  void WriteRegister(std::uint16_t address, std::uint16_t value);
  void ReadRegister(std::uint16_t address);
  // `when`: 0 now, 1 measure, 2 flash, 3 dark; anything else means now.
  void StartRawCapture(std::uint32_t size, std::uint32_t when);
  // This head works with format 2 alone.
  void SetOutputFormat(std::uint32_t format);
  void RedModulationOn();
  void RedModulationOff();
  void SetGpio(std::uint16_t line, std::uint16_t value);
  void TestVectorOn();
  void TestVectorOff();

  // Takes the processor to its safe state, and writes at once, since at the end of the process the
  // loop no longer turns.
  void AllOff();

  // What all of the above come down to. A payload is cut off at 404 bytes.
  void Send(std::uint16_t code, const void* payload, std::size_t length);

  int GetFD() override { return file.GetFD(); }
  void HandleRead() override;
  void HandleWrite() override;
  const char* GetName() override { return "DSPDevice"; }

 private:
  void SendBytes(DSPCode code, std::span<const std::uint8_t> payload);
  void SendWord(DSPCode code, std::uint32_t word);
  void SendPair(DSPCode code, std::uint16_t first, std::uint16_t second);

  void EndOfFile();
  // Handles the record at the front of `bytes`, which holds a header at least; returns its length
  // with header and padding.
  std::size_t DecodeRecord(std::span<const std::uint8_t> bytes);
  void Dispatch(const RecordHeader& header, const std::uint8_t* payload);
  void DispatchBatch(const RecordTime& stamp, const std::uint8_t* payload);

  StreamFile file;
  bool borrowed_end;  // `file` is one end of a pair, and not the device
  Listener* listener = nullptr;
  std::vector<std::uint8_t> read_buffer;
  std::vector<std::uint8_t> write_queue;
  SampleClock sample_clock;
};
