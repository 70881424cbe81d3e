#include "writer/OpenFiles.h"

#include <gtest/gtest.h>

#include "tests/support/FileLink.h"

TEST(FileHandles, KeepTheirFilesAndOrderWhenTheNumbersStartAgain) {
    std::atomic<std::uint64_t> aLastNumber{0xFFFFFFFD};
    std::vector<tagOpenFile> vecFiles;
    COpenFiles aFiles(vecFiles, aLastNumber);
    LinkScript aScripts[4];
    std::string strClosed;
    const CmUint32 aHandles[] = {0xFFFFFFFE, 0xFFFFFFFF, 1, 2};
    for (int n = 0; n < 4; ++n) {
        if (n == 3) aLastNumber = 0x1FFFFFFFD;  // the next three numbers are in use, or 0
        aScripts[n].aFault = [&strClosed, n](const std::string& strCall) {
            strClosed += strCall + std::to_string(n) + " ";
            return 0;
        };
        EXPECT_EQ(aFiles.Add(new FileLink(aScripts[n], nullptr)), aHandles[n]);
    }
    EXPECT_FALSE(aFiles.Remove(3));
    EXPECT_TRUE(aFiles.Remove(aHandles[1]));
    for (int n = 0; n < 4; ++n) EXPECT_EQ(aFiles.Find(aHandles[n]) != nullptr, n != 1);
    aFiles.Find(aHandles[2])->Close();
    aFiles.CloseAll();
    EXPECT_EQ(strClosed, "Close2 Close0 Close2 Close3 ");
    EXPECT_TRUE(vecFiles.empty());
}
