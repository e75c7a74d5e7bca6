// Signatures, held against those that openssl's command makes and accepts.

#include "media/signature.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <fstream>

#include "media/error.h"
#include "support/files.h"
#include "support/run_program.h"
#include "support/temp_dir.h"

namespace {

using namespace media;
using test_support::ReadFile;
using test_support::RunProgram;
using test_support::TempDir;

class Signatures : public ::testing::Test {
protected:
    void SetUp() override {
        Openssl({"genpkey", "-algorithm", "ed25519", "-out", File("key.pem")});
        Openssl({"pkey", "-in", File("key.pem"), "-pubout", "-out", File("public.pem")});
    }

    std::string File(const std::string& name) const { return m_dir.File(name); }

    static int Openssl(std::vector<std::string> command) {
        command.insert(command.begin(), "openssl");
        return RunProgram(command).exitCode;
    }

    void Put(const std::string& name, const std::string& bytes) const {
        std::ofstream(File(name), std::ios::binary) << bytes;
    }

    template <typename Key>
    std::string Refusal(const std::string& name) const {
        try {
            const Key key(File(name));
            return "taken";
        } catch (const Error& error) {
            EXPECT_EQ(error.Kind(), ErrorKind::BadKey);
            const std::string line = error.what();
            EXPECT_EQ(line.rfind(File(name) + ": ", 0), 0u) << line;
            return line.substr(File(name).size() + 2);
        }
    }

    TempDir m_dir;
};

TEST_F(Signatures, AreThoseThatOpensslMakes) {
    for (const std::string& message : {std::string("x"), std::string("a\0b", 3), std::string(100000, 'x')}) {
        Put("message", message);
        ASSERT_EQ(Openssl({"pkeyutl", "-sign", "-rawin", "-inkey", File("key.pem"), "-in", File("message"),
                           "-out", File("theirs")}),
                  0);
        const std::string ours = SigningKey(File("key.pem")).Sign(message);
        EXPECT_EQ(ours.size(), kSignatureBytes);
        EXPECT_EQ(ours, ReadFile(File("theirs")));
        EXPECT_TRUE(PublicKey(File("public.pem")).Fits(message, ours));
    }
    EXPECT_EQ(SigningKey(File("key.pem")).PublicKey(), ReadFile(File("public.pem")));
}

TEST_F(Signatures, AreAcceptedByOpenssl) {
    const std::string message = "{\"schema_version\": 1}\n";
    Put("message", message);
    Put("signature", SigningKey(File("key.pem")).Sign(message));
    const std::vector<std::string> verify = {"pkeyutl",  "-verify",          "-rawin", "-pubin",
                                             "-inkey",   File("public.pem"), "-in",    File("message"),
                                             "-sigfile", File("signature")};
    EXPECT_EQ(Openssl(verify), 0);
    Put("message", message + " ");
    EXPECT_EQ(Openssl(verify), 1);
}

TEST_F(Signatures, FitNothingElse) {
    const SigningKey key(File("key.pem"));
    const PublicKey publicKey(File("public.pem"));
    const std::string message = "evidence";
    const std::string signature = key.Sign(message);
    EXPECT_FALSE(publicKey.Fits("Evidence", signature));
    EXPECT_FALSE(publicKey.Fits("", signature));
    for (const size_t changed : {size_t{0}, size_t{31}, size_t{63}}) {
        std::string forged = signature;
        forged[changed] = static_cast<char>(forged[changed] ^ 1);
        EXPECT_FALSE(publicKey.Fits(message, forged)) << changed;
    }
    EXPECT_FALSE(publicKey.Fits(message, ""));
    EXPECT_FALSE(publicKey.Fits(message, signature.substr(1)));
    EXPECT_FALSE(publicKey.Fits(message, signature + "0"));
    Openssl({"genpkey", "-algorithm", "ed25519", "-out", File("other.pem")});
    EXPECT_FALSE(publicKey.Fits(message, SigningKey(File("other.pem")).Sign(message)));
}

TEST_F(Signatures, TakeKeysOfTheirKindOnly) {
    const std::string noPrivate = "holds no private Ed25519 key that can be used, as PEM";
    const std::string noPublic = "holds no public Ed25519 key that can be used, as PEM";
    EXPECT_EQ(Refusal<SigningKey>("public.pem"), noPrivate);
    EXPECT_EQ(Refusal<PublicKey>("key.pem"), noPublic);
    Openssl({"genpkey", "-algorithm", "ed448", "-out", File("448.pem")});
    EXPECT_EQ(Refusal<SigningKey>("448.pem"), noPrivate);
    // A passphrase is not waited for.
    Openssl(
        {"pkey", "-in", File("key.pem"), "-aes256", "-passout", "pass:secret", "-out", File("locked.pem")});
    EXPECT_EQ(Refusal<SigningKey>("locked.pem"), noPrivate);
    Put("empty", "");
    EXPECT_EQ(Refusal<SigningKey>("empty"), noPrivate);
    EXPECT_EQ(Refusal<PublicKey>("empty"), noPublic);
    Put("large", std::string(0x10001, ' '));
    EXPECT_EQ(Refusal<SigningKey>("large"), "is larger than 65536 bytes");
    EXPECT_EQ(Refusal<SigningKey>("absent"), "cannot be opened: No such file or directory");
    EXPECT_EQ(Refusal<PublicKey>(""), "is no file");
    ASSERT_EQ(mkfifo(File("fifo").c_str(), 0600), 0);
    EXPECT_EQ(Refusal<SigningKey>("fifo"), "is no file");
}

} // namespace
