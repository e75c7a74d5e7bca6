// Heads of containers that are written before what they tell is known.

#include "predicted_head.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include "media/cameras.h"
#include "media/error.h"
#include "media/sink.h"
#include "stream_parameters.h"
#include "support/files.h"
#include "support/temp_dir.h"

namespace {

using namespace media;
using media_test::KeyFrame;
using test_support::ReadFile;

const uint8_t* Text(const char* text) {
    return reinterpret_cast<const uint8_t*>(text);
}

/// A file that cannot be read back, so that hashing it once more fails.
class PredictedHeads : public ::testing::Test {
protected:
    PredictedHeads()
        : m_writer("out", open(m_path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666), m_pipeline) {}

    /// @return whether the file had to be read once more
    bool IsReadBack() {
        m_writer.BeginCompletion();
        try {
            m_writer.AwaitCompletion();
            return false;
        } catch (const Error& error) {
            EXPECT_EQ(error.Kind(), ErrorKind::CannotReadBack);
            return true;
        }
    }

    test_support::TempDir m_dir;
    const std::string m_path = m_dir.File("out");
    Pipeline m_pipeline;
    FileWriter m_writer;
};

TEST_F(PredictedHeads, AreKeptInMemoryUntilTheyAreClosed) {
    MuxedFile file(&m_writer);
    file.Write(Text("head"), 4);
    file.Seek(1);
    file.Write(Text("EA"), 2);
    EXPECT_EQ(m_writer.Size(), 0u);
    file.Seek(4);
    file.CloseHead(std::nullopt);
    EXPECT_EQ(m_writer.Size(), 4u);
    file.Write(Text("body"), 4);
    EXPECT_EQ(m_writer.Size(), 8u);
    file.BeginEnd();
    file.Write(Text("tail"), 4);
    file.Seek(9);
    file.Write(Text("AI"), 2);
    file.Seek(0);
    file.Write(Text("H"), 1);
    EXPECT_EQ(m_writer.Size(), 8u);
    file.Finish();
    EXPECT_TRUE(IsReadBack());
    EXPECT_EQ(ReadFile(m_path), "HEAdbodytAIl");
}

TEST_F(PredictedHeads, ThatCameTrueAreNotWrittenAgain) {
    MuxedFile file(&m_writer);
    file.Write(Text("head"), 4);
    file.CloseHead(Bytes{'h', 'E', 'a', 'd'});
    file.Write(Text("body"), 4);
    file.BeginEnd();
    file.Seek(1);
    file.Write(Text("E"), 1);
    file.Finish();
    EXPECT_FALSE(IsReadBack());
    EXPECT_EQ(ReadFile(m_path), "hEadbody");
}

TEST_F(PredictedHeads, ThatDidNotAreWrittenAgain) {
    MuxedFile file(&m_writer);
    file.Write(Text("head"), 4);
    file.CloseHead(Bytes{'h', 'E', 'a', 'd'});
    file.Write(Text("body"), 4);
    file.BeginEnd();
    file.Finish();
    EXPECT_TRUE(IsReadBack());
    EXPECT_EQ(ReadFile(m_path), "headbody");
}

/// Muxes a camera's frames, with the head as an estimate has it.
class MuxedHeads : public PredictedHeads, public ::testing::WithParamInterface<Container> {
protected:
    static std::unique_ptr<Muxer> Make(MuxTarget& target) {
        auto muxer = std::make_unique<Muxer>("out", GetParam(), target);
        muxer->AddStream(*VideoParameters(AV_CODEC_ID_H264, KeyFrame(0, 0, 10).Get()), 0);
        return muxer;
    }

    /// Writes key frames of 10,000 bytes, one a second.
    void Mux(int count, const Estimate& estimate) {
        MuxedFile file(&m_writer);
        const std::unique_ptr<Muxer> muxer = Make(file);
        const std::unique_ptr<HeadPredictor> predictor = MakeHeadPredictor(GetParam());
        const ContainerFacts facts;
        muxer->Start(facts);
        file.CloseHead(predictor->Predict(file.Head(), facts, estimate, Make));
        const Bytes payload(10000, 5);
        for (int i = 0; i < count; ++i) {
            muxer->Write(0, payload.data(), payload.size(), i * 1000000, true);
        }
        predictor->Finish(*muxer, file, facts.chapters);
        file.Finish();
    }
};

INSTANTIATE_TEST_SUITE_P(All, MuxedHeads, ::testing::Values(Container::Matroska, Container::Mp4),
                         [](const auto& one) { return std::string(NameOf(one.param)); });

TEST_P(MuxedHeads, AreRightAtOnceWhenTheOutlookIs) {
    Mux(100, {100 * 10024, 100, {LastFrame{99000000, 10000}}});
    EXPECT_FALSE(IsReadBack());
}

TEST_P(MuxedHeads, AreRightLaterWhenMoreComes) {
    Mux(100, {90 * 10024, 100, {LastFrame{99000000, 10000}}});
    EXPECT_TRUE(IsReadBack());
}

TEST_P(MuxedHeads, AreRightLaterWhenMuchLessComes) {
    Mux(50, {100 * 10024, 100, {LastFrame{49000000, 10000}}});
    EXPECT_TRUE(IsReadBack());
}

TEST_P(MuxedHeads, TellHowLongItLasts) {
    // MP4 says it after the frames.
    Mux(100, {100 * 10024, 100, {LastFrame{98000000, 10000}}});
    EXPECT_EQ(IsReadBack(), GetParam() == Container::Matroska);
}

} // namespace
