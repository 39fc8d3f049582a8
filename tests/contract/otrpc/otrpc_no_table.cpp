// A program without a table has nothing to be called.
#include <errno.h>

#include <gmock/gmock.h>

#include "isolate.h"
#include "log_capture.h"
#include "otrpc.h"

static const std::string root = scratch_root();

TEST(OtrpcNoTable, CannotBeStarted)
{
    LogCapture log;
    EXPECT_EQ(otrpc_start(), -1);
    EXPECT_THAT(log.lines(), testing::ElementsAre(LogCapture::Line{
                                 NARO_LOG_ERR, "[otrpc] the program exports no otrpc_table\n"}));
    otrpc_stop();
    int result;
    EXPECT_EQ(otrpc_call("sd_umount", 1000, &result), -ENOENT);
}
