#include "segments/crypt_key.h"

#include <gtest/gtest.h>

#include "log_capture.h"
#include "test_support.h"

namespace {

struct KeyDeleter {
  void operator()(CryptKey* k) const { CryptKeyDestroy(k); }
};
using KeyPtr = std::unique_ptr<CryptKey, KeyDeleter>;

TEST(CryptKey, GeneratedKeysSkipExistingFilesAndNeverOverwrite) {
  ScratchDir dir;
  LogCapture log;
  WriteFile(dir / "crypt0.key", "existing-key-0!!");
  WriteFile(dir / "crypt2.key", "existing-key-2!!");
  CryptKeyState state;
  ASSERT_EQ(CryptKeyInitState(&state, "/dev/random"), kNoErr);
  std::vector<std::string> names;
  for (int i = 0; i < 3; i++) {
    CryptKey* raw = nullptr;
    ASSERT_EQ(CryptKeyCreateRandomFromBase(&state, dir.path().c_str(), nullptr, nullptr, &raw),
              kNoErr);
    KeyPtr key(raw);
    names.push_back(*key->fileName);
    EXPECT_EQ(*key->path, dir / *key->fileName);
    EXPECT_EQ(*key->url, *key->fileName);  // no URL prefix: the bare name
    EXPECT_EQ(ReadFile(*key->path), std::string(reinterpret_cast<char*>(key->keyBytes.get()), 16));
  }
  EXPECT_EQ(names, (std::vector<std::string>{"crypt1.key", "crypt3.key", "crypt4.key"}));
  EXPECT_EQ(ReadFile(dir / "crypt0.key"), "existing-key-0!!");
  EXPECT_EQ(ReadFile(dir / "crypt2.key"), "existing-key-2!!");
  EXPECT_TRUE(log.Contains("Not overrwriting crypt key file " + (dir / "crypt0.key") +
                           " already exists\n"));
  EXPECT_EQ(state.keyNumber, 5u);

  CryptKey* raw = nullptr;
  ASSERT_EQ(CryptKeyCreateRandomFromBase(&state, dir.path().c_str(), "keys", "mykey", &raw),
            kNoErr);
  KeyPtr named(raw);
  EXPECT_EQ(*named->fileName, "mykey5.key");
  EXPECT_EQ(*named->url, "keys/mykey5.key");
  EXPECT_EQ(CryptKeyDestroyState(&state), 0);
  EXPECT_EQ(CryptKeyCreateRandomFromBase(nullptr, nullptr, nullptr, nullptr, &raw), -45009);
  EXPECT_EQ(CryptKeyCreateStatic(nullptr, nullptr, nullptr, 0, &raw), -45009);
}

TEST(CryptKey, UnwritableKeyDirectoryIsReportedNotLoopedOn) {
  ScratchDir dir;
  WriteFile(dir / "file", "a file where the key directory should be");
  LogCapture log;
  CryptKeyState state;
  ASSERT_EQ(CryptKeyInitState(&state, "/dev/random"), kNoErr);
  CryptKey* raw = nullptr;
  EXPECT_EQ(CryptKeyCreateRandomFromBase(&state, (dir / "file").c_str(), nullptr, nullptr, &raw),
            ENOTDIR);
  EXPECT_TRUE(log.Contains("cannot create crypt key file " + (dir / "file") + "/crypt0.key"));
  CryptKeyDestroyState(&state);
}

}  // namespace
