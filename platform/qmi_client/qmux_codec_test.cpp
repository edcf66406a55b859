#include "platform/qmi_client/qmux_codec.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// CTL Get Client ID request for the vendor service, transaction 1:
//   01          interface type
//   0f 00       QMUX length 15 (everything after the 01)
//   00          from the control point
//   00          service: CTL
//   00          client id 0
//   00          CTL flags: request
//   01          transaction 1 (8 bits on CTL)
//   22 00       message 0x0022 Get Client ID
//   04 00       TLV area: 4 bytes
//   01 01 00 e3 TLV 0x01, length 1, service 0xE3
const Bytes kGetClientIdRequest = {0x01, 0x0f, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01,
                                   0x22, 0x00, 0x04, 0x00, 0x01, 0x01, 0x00, 0xe3};

// Vendor service response to message 0x1F, client 3, transaction 0x0102:
//   01                    interface type
//   13 00                 QMUX length 19
//   80                    from the service
//   e3                    service 0xE3
//   03                    client id 3
//   02                    service flags: response
//   02 01                 transaction 0x0102
//   1f 00                 message 0x001F
//   07 00                 TLV area: 7 bytes
//   02 04 00 00 00 00 00  result TLV: success, no error
const Bytes kEnsResponse = {0x01, 0x13, 0x00, 0x80, 0xe3, 0x03, 0x02, 0x02, 0x01, 0x1f,
                            0x00, 0x07, 0x00, 0x02, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00};

TEST(QmuxEncode, CtlGetClientIdRequestMatchesHandMadeBytes) {
    qmux::Message message;
    message.service = qmux::kCtlService;
    message.flags = qmux::kCtlRequest;
    message.transaction = 1;
    message.message_id = qmux::kCtlGetClientId;
    qmux::AppendTlv(&message.tlvs, qmux::kCtlArgumentTlv, Bytes{0xe3});
    EXPECT_EQ(qmux::Encode(message), kGetClientIdRequest);
}

TEST(QmuxEncode, CtlTransactionKeepsOnlyEightBits) {
    qmux::Message message;
    message.transaction = 0x1234;
    Bytes frame = qmux::Encode(message);
    ASSERT_GE(frame.size(), 8u);
    EXPECT_EQ(frame[7], 0x34);
}

TEST(QmuxEncode, TlvAreaTooLongForQmuxLengthGivesNothing) {
    qmux::Message message;
    message.service = 0xe3;
    message.tlvs.assign(0xFFFF, 0);
    EXPECT_TRUE(qmux::Encode(message).empty());
}

TEST(QmuxDecode, VendorResponseFields) {
    qmux::Message message;
    ASSERT_EQ(qmux::Decode(kEnsResponse, &message), qmux::DecodeStatus::kOk);
    EXPECT_EQ(message.qmux_flags, qmux::kFromService);
    EXPECT_EQ(message.service, 0xe3);
    EXPECT_EQ(message.client_id, 3);
    EXPECT_EQ(message.flags, qmux::kServiceResponse);
    EXPECT_EQ(message.transaction, 0x0102);
    EXPECT_EQ(message.message_id, 0x1f);
    std::optional<qmux::Result> result = qmux::ReadResult(message.tlvs);
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->result, 0);
    EXPECT_EQ(result->error, 0);
}

TEST(QmuxDecode, EncodeThenDecodeGivesTheSameMessage) {
    qmux::Message message;
    message.qmux_flags = qmux::kFromService;
    message.service = 0xe3;
    message.client_id = 9;
    message.flags = qmux::kServiceIndication;
    message.transaction = 0xBEEF;
    message.message_id = 0x0009;
    qmux::AppendTlv(&message.tlvs, 0x10, Bytes(300, 0xAA));
    qmux::Message back;
    ASSERT_EQ(qmux::Decode(qmux::Encode(message), &back), qmux::DecodeStatus::kOk);
    EXPECT_EQ(back.transaction, 0xBEEF);
    EXPECT_EQ(back.flags, qmux::kServiceIndication);
    EXPECT_EQ(back.tlvs, message.tlvs);
}

struct MalformedFrame {
    const char* fault;
    Bytes bytes;
    qmux::DecodeStatus expected;
};
// Shown by name in test listings instead of as raw bytes.
void PrintTo(const MalformedFrame& c, std::ostream* os) {
    *os << c.fault;
}

class QmuxDecodeMalformed : public testing::TestWithParam<MalformedFrame> {};

TEST_P(QmuxDecodeMalformed, IsRejectedWithoutReadingPastTheEnd) {
    qmux::Message message;
    message.message_id = 0x7777;  // untouched on failure
    EXPECT_EQ(qmux::Decode(GetParam().bytes, &message), GetParam().expected);
    EXPECT_EQ(message.message_id, 0x7777);
}

Bytes Cut(const Bytes& bytes, size_t length) {
    return Bytes(bytes.begin(), bytes.begin() + length);
}
Bytes With(Bytes bytes, size_t at, uint8_t value) {
    bytes[at] = value;
    return bytes;
}

INSTANTIATE_TEST_SUITE_P(
    Faults, QmuxDecodeMalformed,
    testing::Values(
        MalformedFrame{"empty", {}, qmux::DecodeStatus::kTooShort},
        // 01 13 00 80 e3: the client id byte is missing.
        MalformedFrame{"qmux_header_cut", Cut(kEnsResponse, 5), qmux::DecodeStatus::kTooShort},
        // 02 13 00 ...: not a QMUX frame.
        MalformedFrame{"bad_interface_type", With(kEnsResponse, 0, 0x02),
                       qmux::DecodeStatus::kBadInterfaceType},
        // QMUX length 0x20 on a 20-byte frame.
        MalformedFrame{"qmux_length_past_end", With(kEnsResponse, 1, 0x20),
                       qmux::DecodeStatus::kLengthMismatch},
        // QMUX length 0x10 on a 20-byte frame.
        MalformedFrame{"qmux_length_short_of_frame", With(kEnsResponse, 1, 0x10),
                       qmux::DecodeStatus::kLengthMismatch},
        // 01 08 00 80 e3 03 02 02 01: length agrees, message header cut after the transaction.
        MalformedFrame{"message_header_cut",
                       {0x01, 0x08, 0x00, 0x80, 0xe3, 0x03, 0x02, 0x02, 0x01},
                       qmux::DecodeStatus::kSduTooShort},
        // TLV area length 0xff00 where 7 bytes follow.
        MalformedFrame{"tlv_area_length_past_end", With(kEnsResponse, 12, 0xff),
                       qmux::DecodeStatus::kTlvLengthMismatch},
        // TLV area length 3 where 7 bytes follow.
        MalformedFrame{"tlv_area_length_short", With(kEnsResponse, 11, 0x03),
                       qmux::DecodeStatus::kTlvLengthMismatch}),
    [](const testing::TestParamInfo<MalformedFrame>& info) {
        return std::string(info.param.fault);
    });

TEST(QmuxTlvs, ParsesEachTypeAndValue) {
    // 02 04 00 00 00 00 00 | 10 02 00 41 42 | 11 00 00
    Bytes area = {0x02, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10,
                  0x02, 0x00, 0x41, 0x42, 0x11, 0x00, 0x00};
    std::vector<qmux::Tlv> tlvs;
    ASSERT_TRUE(qmux::ParseTlvs(area, &tlvs));
    ASSERT_EQ(tlvs.size(), 3u);
    EXPECT_EQ(tlvs[1].type, 0x10);
    EXPECT_EQ(Bytes(tlvs[1].value.begin(), tlvs[1].value.end()), (Bytes{0x41, 0x42}));
    EXPECT_TRUE(tlvs[2].value.empty());
}

// A TLV that claims more than the area holds, or whose header is cut,
// ends the parse: what came before it is kept.
TEST(QmuxTlvs, CutTlvStopsAndKeepsWhatParsed) {
    const std::pair<Bytes, size_t> cases[] = {
        {{0x10, 0x01, 0x00, 0x41, 0x13, 0x09, 0x00, 0x31, 0x32}, 1},  // 9 bytes claimed, 2 follow
        {{0x10, 0x01}, 0},                                            // header cut
    };
    for (const auto& [area, kept] : cases) {
        std::vector<qmux::Tlv> tlvs;
        EXPECT_FALSE(qmux::ParseTlvs(area, &tlvs));
        ASSERT_EQ(tlvs.size(), kept);
        if (kept) {
            EXPECT_EQ(tlvs[0].type, 0x10);
        }
    }
}

TEST(QmuxTlvs, ResultTlvCarriesTheErrorCodeAndShortOnesAreNone) {
    // 02 04 00 01 00 47 00: failure, error 0x47.
    std::optional<qmux::Result> result =
        qmux::ReadResult(Bytes{0x02, 0x04, 0x00, 0x01, 0x00, 0x47, 0x00});
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->result, 1);
    EXPECT_EQ(result->error, 0x47);
    // 02 02 00 01 00: a result TLV of 2 bytes has no error field.
    EXPECT_FALSE(qmux::ReadResult(Bytes{0x02, 0x02, 0x00, 0x01, 0x00}).has_value());
    EXPECT_FALSE(qmux::ReadResult(Bytes{}).has_value());
}

TEST(QmuxAssembler, FrameSplitAtEveryByteComesOutWhole) {
    for (size_t split = 1; split < kEnsResponse.size(); ++split) {
        qmux::FrameAssembler assembler;
        Bytes frame;
        assembler.Append({kEnsResponse.data(), split});
        EXPECT_FALSE(assembler.Next(&frame)) << "split " << split;
        assembler.Append({kEnsResponse.data() + split, kEnsResponse.size() - split});
        ASSERT_TRUE(assembler.Next(&frame)) << "split " << split;
        EXPECT_EQ(frame, kEnsResponse);
    }
}

TEST(QmuxAssembler, GarbageIsDroppedAndTwoFramesInOneReadComeOutInOrder) {
    // ff 00 7e | 01 00 00 (a 01 whose length is impossible) | two frames
    Bytes stream = {0xff, 0x00, 0x7e, 0x01, 0x00, 0x00};
    stream.insert(stream.end(), kGetClientIdRequest.begin(), kGetClientIdRequest.end());
    stream.insert(stream.end(), kEnsResponse.begin(), kEnsResponse.end());
    qmux::FrameAssembler assembler;
    assembler.Append(stream);
    Bytes frame;
    ASSERT_TRUE(assembler.Next(&frame));
    EXPECT_EQ(frame, kGetClientIdRequest);
    EXPECT_GE(assembler.dropped(), 4u);
    ASSERT_TRUE(assembler.Next(&frame));
    EXPECT_EQ(frame, kEnsResponse);
    EXPECT_FALSE(assembler.Next(&frame));
}

TEST(QmuxAssembler, LengthLargerThanWhatArrivedWaits) {
    // 01 ff ff ...: a frame of 65536 bytes of which 20 arrived.
    Bytes stream = With(kEnsResponse, 1, 0xff);
    stream[2] = 0xff;
    qmux::FrameAssembler assembler;
    assembler.Append(stream);
    Bytes frame;
    EXPECT_FALSE(assembler.Next(&frame));
    EXPECT_EQ(assembler.buffered(), stream.size());
}

}  // namespace
