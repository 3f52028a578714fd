// Subjects and headers, what is missing, and the lines of the instrument list.

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "relay/InstrumentLines.h"
#include "relay/Order.h"
#include "relay/Subscriber.h"
#include "relay/Wire.h"

namespace ZceRelay {
namespace {

using Verdict = CStreamOrder::Verdict;

TEST(RelayWire, ASubjectTellsBusChannelAndType) {
    EXPECT_EQ(SubjectText({Kind::MarketData, 2, 13, 19}), "zce.2.13.19");
    EXPECT_EQ(SubjectText({Kind::Mark, 0, 3, 0}), "zce.0.3.mark");
    EXPECT_EQ(SubjectText({Kind::Instruments, 4, 0, 0}), "zce.4.instruments");
    EXPECT_EQ(WantedText(4), "zce-wanted.4");
    EXPECT_EQ(ReadSubject("zce.2.13.19"), (Subject{Kind::MarketData, 2, 13, 19}));
    EXPECT_EQ(ReadSubject("zce.65535.0.20"), (Subject{Kind::MarketData, 65535, 0, 20}));
    EXPECT_EQ(ReadSubject("zce.0.3.mark"), (Subject{Kind::Mark, 0, 3, 0}));
    EXPECT_EQ(ReadSubject("zce.4.instruments"), (Subject{Kind::Instruments, 4, 0, 0}));
}

TEST(RelayWire, WhatIsNoSubjectOfAPublisherIsNone) {
    for (const char* text : {"",
                             "zce",
                             "zce.",
                             "zce..",
                             "zce.0",
                             "zce.0.",
                             "zce.0.3",
                             "zce.0.3.",
                             "zce.0.3.16",
                             "zce.0.3.21",
                             "zce.0.3.2",
                             "zce.0.16.17",
                             "zce.65536.3.17",
                             "zce.-1.3.17",
                             "zce.0.-3.17",
                             "zce.00.3.17",
                             "zce.0.03.17",
                             "zce.0.3.17.",
                             "zce.0.3.17.4",
                             "zce.0.3.17 ",
                             " zce.0.3.17",
                             "ZCE.0.3.17",
                             "zce.0.3.Mark",
                             "zce.0.instruments.3",
                             "zce.x.3.17",
                             "zce.0.x.17",
                             "zce-wanted.0",
                             "zce.99999999999999999999.3.17"}) {
        EXPECT_EQ(ReadSubject(text), std::nullopt) << text;
    }
}

TEST(RelayWire, ASequenceIsThreeNumbers) {
    EXPECT_EQ(SequenceText({1763800000123456789, 42, true}), "1763800000123456789 42 1");
    EXPECT_EQ(SequenceText({7, 1, false}), "7 1 0");
    EXPECT_EQ(ReadSequence("1763800000123456789 42 1"), (Sequence{1763800000123456789, 42, true}));
    EXPECT_EQ(ReadSequence("0 18446744073709551615 0"),
              (Sequence{0, 18446744073709551615U, false}));
    for (const char* text :
         {"", "1", "1 2", "1 2 ", "1 2 2", "1 0 1", "1  2 1", "1 2 1 ", "1 2 1 1", "-1 2 1",
          "1 -2 1", "1 2 x", "a 2 1", "1 18446744073709551616 1", "01 2 1", "1 2 1\n"}) {
        EXPECT_EQ(ReadSequence(text), std::nullopt) << text;
    }
    EXPECT_EQ(ReadTime("1763800000123456789"), 1763800000123456789);
    for (const char* text : {"", " 1", "1 ", "-1", "1.5", "9223372036854775808"}) {
        EXPECT_EQ(ReadTime(text), std::nullopt) << text;
    }
}

TEST(RelayWire, AStreamsMessageTellsItsPlaceByItsReply) {
    EXPECT_EQ(StreamPlace("$JS.ACK.ZCE.kx1.1.4711.12.1763800000123456789.0"), 4711U);
    // Of a server with a domain: it and the account stand in front.
    EXPECT_EQ(StreamPlace("$JS.ACK.hub.ACC1.ZCE.kx1.1.4711.12.1763800000123456789.0.r1"), 4711U);
    for (const char* reply : {"", "_INBOX.x.y", "$JS.ACK.ZCE.kx1.1.4711.12.1763800000123456789",
                              "$JS.NAK.ZCE.kx1.1.4711.12.1763800000123456789.0"}) {
        EXPECT_EQ(StreamPlace(reply), 0U) << reply;
    }
}

TEST(RelayWire, AnEmptyWordIsAWordToo) {
    using Words = std::vector<std::string_view>;
    EXPECT_EQ(SplitText("nats://a:1,nats://b:2", ','), (Words{"nats://a:1", "nats://b:2"}));
    EXPECT_EQ(SplitText(",x,", ','), (Words{"", "x", ""}));
    EXPECT_EQ(SplitText("", ','), (Words{""}));
}

Sequence At(uint64_t session, uint64_t number) {
    return {session, number, true};
}

TEST(RelayOrder, TellsWhatIsMissingAndWhatComesAgain) {
    CStreamOrder order;
    EXPECT_EQ(order.Judge(At(9, 5)), Verdict::Next);  // who comes late has lost nothing
    EXPECT_EQ(order.LostBefore(), 0U);
    EXPECT_EQ(order.Judge(At(9, 6)), Verdict::Next);
    EXPECT_EQ(order.Judge(At(9, 9)), Verdict::Next);
    EXPECT_EQ(order.LostBefore(), 2U);
    EXPECT_EQ(order.Judge(At(9, 9)), Verdict::Duplicate);
    EXPECT_EQ(order.LostBefore(), 0U);
    EXPECT_EQ(order.Judge(At(9, 7)), Verdict::Duplicate);  // missed before: not taken any more
    EXPECT_EQ(order.Judge(At(9, 10)), Verdict::Next);
    EXPECT_EQ(order.LostBefore(), 0U);
    EXPECT_EQ(order.First(), 5U);
    EXPECT_EQ(order.Last(), 10U);
    EXPECT_EQ(order.Received(), 4U);
    EXPECT_EQ(order.Lost(), 2U);
    EXPECT_EQ(order.Duplicates(), 2U);
    EXPECT_EQ(order.Sessions(), 1U);
}

TEST(RelayOrder, AMarkTellsOfWhatNothingComesBehind) {
    CStreamOrder order;
    order.Mark(At(9, 4));  // the first that is seen: nothing is lost by it
    EXPECT_EQ(order.Lost(), 0U);
    EXPECT_EQ(order.First(), 4U);
    EXPECT_EQ(order.Judge(At(9, 5)), Verdict::Next);
    order.Mark(At(9, 5));
    EXPECT_EQ(order.LostBefore(), 0U);
    order.Mark(At(9, 8));
    EXPECT_EQ(order.LostBefore(), 3U);
    order.Mark(At(9, 7));  // comes again
    EXPECT_EQ(order.LostBefore(), 0U);
    EXPECT_EQ(order.Judge(At(9, 8)), Verdict::Duplicate);
    EXPECT_EQ(order.Judge(At(9, 9)), Verdict::Next);
    EXPECT_EQ(order.LostBefore(), 0U);
    EXPECT_EQ(order.Lost(), 3U);
    EXPECT_EQ(order.Received(), 2U);
}

TEST(RelayOrder, APublisherThatBeginsAnewBeginsWithOne) {
    CStreamOrder order;
    order.Judge(At(9, 5));
    // Its clock may have been set back: another number is another session.
    EXPECT_EQ(order.Judge(At(3, 1)), Verdict::Next);
    EXPECT_EQ(order.LostBefore(), 0U);
    EXPECT_EQ(order.Judge(At(4, 3)), Verdict::Next);
    EXPECT_EQ(order.LostBefore(), 2U);
    order.Mark(At(5, 2));
    EXPECT_EQ(order.LostBefore(), 2U);
    EXPECT_EQ(order.Sessions(), 4U);
    EXPECT_EQ(order.Lost(), 4U);
    EXPECT_EQ(order.Last(), 2U);
    EXPECT_EQ(order.First(), 5U);
}

TEST(RelayOrder, TwoPublishersOfAChannelAreNotMixed) {
    CStreamOrder order;
    order.Judge(At(9, 1));
    EXPECT_EQ(order.Judge(At(10, 1)), Verdict::Next);
    EXPECT_EQ(order.Judge(At(9, 2)), Verdict::Other);
    order.Mark(At(9, 7));
    EXPECT_EQ(order.Judge(At(10, 2)), Verdict::Next);
    EXPECT_EQ(order.Others(), 2U);
    EXPECT_EQ(order.Sessions(), 2U);
    EXPECT_EQ(order.Lost(), 0U);
}

TEST(RelayInstruments, LinesOfACacheFileAreReadAndOthersPassedOver) {
    const std::vector<ListedInstrument> expected = {
        {0, "SR209"}, {4095, "SPD-SR209&SR301"}, {7, "ABCDEFGHIJKLMNOP"}};
    EXPECT_EQ(ReadInstrumentLines("0,SR209\n4095,SPD-SR209&SR301\n7,ABCDEFGHIJKLMNOP\n"), expected);
    EXPECT_EQ(ReadInstrumentLines("0,SR209\n"
                                  "4096,SR301\n,SR301\n-1,SR301\n1 ,SR301\n 1,SR301\nx,SR301\n1\n\n"
                                  "1,\n1,A B\n1,A\x01\n1,\xE4\n1,ABCDEFGHIJKLMNOPQ\n"
                                  "99999999999,SR301\n"
                                  "4095,SPD-SR209&SR301\n"
                                  "contract's_corresponding_time=20261118085510\n"
                                  "7,ABCDEFGHIJKLMNOP\n"
                                  "bin_file_over_tag"),
              expected);
    EXPECT_TRUE(ReadInstrumentLines("0,SR209").empty());  // it is being written just now
    EXPECT_TRUE(ReadInstrumentLines("").empty());
    EXPECT_EQ(InstrumentText(expected), "0,SR209\n4095,SPD-SR209&SR301\n7,ABCDEFGHIJKLMNOP\n");
}

}  // namespace
}  // namespace ZceRelay
