// Walking the packets of an MPEG-2 transport stream: packet size and alignment, the program
// tables (program association and program map sections, reassembled across packets), and the
// start of each packetized elementary stream packet with its time stamp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/status.h"
#include "media/formats/probe_reader.h"

inline constexpr size_t kTransportPacketSize = 188;

struct TransportStreamLayout {
  size_t packetSize = 0;  // 188, or 192 when each packet carries a 4-byte arrival time first
  int64_t firstPacket = 0;  // offset of the first packet (its arrival time, if any)
};

// Finds the packet layout from the first bytes of a file; false when they are not a transport
// stream.
bool TransportStreamFindLayout(const uint8_t* head, size_t size, TransportStreamLayout* out);

struct TransportElementaryStream {
  uint16_t pid = 0;
  uint8_t streamType = 0;
  uint32_t mediaType = 0;  // zero when the stream is not presented as a track
};

class TransportStreamWalker {
 public:
  struct Visitor {
    virtual ~Visitor() = default;
    // A packetized elementary stream packet of `pid` starts with these payload bytes.
    virtual void PacketStart(uint16_t pid, const uint8_t* pes, size_t size) = 0;
    virtual void ProgramClock(uint16_t pid, uint64_t clock) = 0;
  };

  explicit TransportStreamWalker(TransportStreamLayout layout) : layout_(layout) {}

  // Walks the whole packets in `bytes`, which start at a packet boundary.
  void Walk(const uint8_t* bytes, size_t size, Visitor* visitor);

  bool HaveProgramTables() const { return sawProgramMap_; }
  // Elementary streams of every program map section seen, in table order, each pid once.
  const std::vector<TransportElementaryStream>& Streams() const { return streams_; }

 private:
  struct Section {
    uint16_t pid = 0;
    std::vector<uint8_t> bytes;
    bool active = false;
  };
  void Payload(uint16_t pid, bool unitStart, const uint8_t* p, size_t size);
  void SectionBytes(uint16_t pid, const uint8_t* p, size_t size);
  void Table(uint16_t pid, const uint8_t* p, size_t size);
  bool IsProgramMapPid(uint16_t pid) const;
  Section* SectionFor(uint16_t pid);

  TransportStreamLayout layout_;
  std::vector<uint16_t> programMapPids_;
  std::vector<Section> sections_;
  std::vector<TransportElementaryStream> streams_;
  bool sawProgramMap_ = false;
};
