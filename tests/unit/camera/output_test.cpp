// What is printed, to the letter; the status object; the window's pipe. The figures come from fakes.
#include "output.h"

#include <ev.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <signal.h>
#include <sstream>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavutil/frame.h>
}

#include "command_server.h"
#include "isolate.h"
#include "log_capture.h"
#include "overlay.h"
#include "rendered.h"
#include "sound.h"
#include "source.h"
#include "status.h"
#include "supervisor.h"
#include "window.h"

// ---- Fakes ---------------------------------------------------------------------------------------------------
namespace
{

using testing::HasSubstr;
using testing::Not;

struct {
    frames_counts frames;
    supervisor_figures daemon;
    command_server_counts commands;
    isp_state isp;
    sound_counts sound;
    bool live;
    unsigned reopened;
} fake;

} // namespace

const frames_counts *frames_get_counts(void)
{
    return &fake.frames;
}
void supervisor_get_figures(supervisor_figures *figures)
{
    *figures = fake.daemon;
}
const command_server_counts *command_server_get_counts(void)
{
    return &fake.commands;
}
const isp_state *command_server_isp(void)
{
    return &fake.isp;
}
const sound_counts *sound_get_counts(void)
{
    return &fake.sound;
}
bool source_is_live(void)
{
    return fake.live;
}
unsigned source_reopened(void)
{
    return fake.reopened;
}

// ---- Tests ---------------------------------------------------------------------------------------------------
namespace
{

const std::string root = scratch_root();

struct Output : testing::Test {
    Output()
    {
        options.source = "shapes";
        options.daemon = "naro_algo";
        loop = ev_loop_new(EVFLAG_AUTO);
        isp_state_init(&fake.isp);
    }
    ~Output() override
    {
        output_stop();
        ev_loop_destroy(loop);
    }
    void start() { ASSERT_EQ(output_start(loop, &options), 0); }
    void show(uint64_t time_ms, const std::vector<std::string> &events, int boxes = 0)
    {
        frame_result result = {};
        result.time_ms = time_ms;
        result.analysed = true;
        result.events = events;
        result.boxes = boxes;
        result.track.box[0] = {120, 40, 180, 170};
        output_result(&result);
    }

    camera_options options = {};
    struct ev_loop *loop;
};

TEST_F(Output, ALineForEachEventBoxesForPeopleOnly)
{
    start();
    OutputCapture out(STDOUT_FILENO);
    show(0, {});
    show(12400, {"PeopleMotion"}, 1);
    show(12600, {"ObjectMotion"}, 1);
    show(12800, {"NightToDay", "PeopleMotion"}, 1);
    EXPECT_EQ(out.text(), "00:12.400  PeopleMotion  [120,40 60x130]\n"
                          "00:12.600  ObjectMotion\n"
                          "00:12.800  NightToDay\n"
                          "00:12.800  PeopleMotion  [120,40 60x130]\n");
}

TEST_F(Output, ASoundIsAnEventOfTheNewestPicture)
{
    start();
    fake.frames.last_time_ms = 62000;
    OutputCapture out(STDOUT_FILENO);
    output_sound();
    EXPECT_EQ(out.text(), "01:02.000  LoudSound\n");
    EXPECT_THAT(status_json(), HasSubstr("\"events\":{\"LoudSound\":1}"));
}

TEST_F(Output, OrAsJson)
{
    options.json = true;
    start();
    OutputCapture out(STDOUT_FILENO);
    show(12400, {"PeopleMotion"}, 1);
    EXPECT_EQ(out.text(), "{\"time_ms\":12400,\"event\":\"PeopleMotion\",\"boxes\":[[120,40,60,130]]}\n");
}

TEST_F(Output, OrTheSummaryAlone)
{
    options.summary_only = true;
    options.daemon = nullptr;
    start();
    OutputCapture out(STDOUT_FILENO);
    show(12400, {"PeopleMotion"}, 1);
    EXPECT_EQ(out.text(), "");
    output_summary();
    EXPECT_THAT(out.text(), HasSubstr("events      1 PeopleMotion\n"));
}

TEST_F(Output, TheSummaryAddsUp)
{
    start();
    OutputCapture out(STDOUT_FILENO);
    show(200, {"PeopleMotion", "ObjectMotion"}, 1);
    show(400, {"PeopleMotion"}, 1);
    out.clear();
    fake.frames.sent = 102;
    fake.frames.analysed = 99;
    fake.frames.compared = 2;
    fake.frames.lost = 1;
    fake.frames.with_motion = 50;
    fake.frames.with_people = 24;
    fake.frames.last_time_ms = 19800;
    fake.daemon.cpu_s = 0.5;
    fake.daemon.peak_kib = 9 * 1024 + 512;
    output_summary();
    EXPECT_EQ(out.text(), "\n"
                          "frames      102 sent, 99 analysed, 2 compared with only, 1 dropped\n"
                          "motion      50 frames\n"
                          "people      24 frames\n"
                          "events      1 ObjectMotion\n"
                          "events      2 PeopleMotion\n"
                          "CPU         0.50 s of the daemon, 2.50 % of one core for 20.0 s of the source\n"
                          "memory      9.5 MB of the daemon, resident, at most\n");
    out.clear();
    fake.daemon.restarts = 3;
    output_summary();
    EXPECT_THAT(out.text(), HasSubstr("restarts    3 of the daemon\n"));
}

TEST_F(Output, ASummaryOfNothing)
{
    fake.frames = {};
    fake.daemon = {};
    start();
    OutputCapture out(STDOUT_FILENO);
    output_summary();
    EXPECT_THAT(out.text(), HasSubstr("events      none\n"));
    EXPECT_THAT(out.text(),
                HasSubstr("CPU         0.00 s of the daemon, 0.00 % of one core for 0.0 s of the source\n"));
}

TEST_F(Output, TheSummaryAsJsonIsTheStatus)
{
    options.json = true;
    start();
    OutputCapture out(STDOUT_FILENO);
    output_summary();
    EXPECT_EQ(out.text(), "{\"summary\":" + status_json() + "}\n");
}

TEST_F(Output, FramesAreWrittenAsPlanes)
{
    const std::string path = root + "/frames.y4m";
    options.frames = path.c_str();
    start();
    std::vector<uint8_t> nv12(320 * 192 * 3 / 2);
    for (size_t i = 0; i < nv12.size(); i++)
        nv12[i] = static_cast<uint8_t>(i < 320 * 192 ? i % 251 : i % 2 ? 200 + i % 7 : i % 11);
    output_sent(nv12.data());
    nv12[0] = 17;
    output_sent(nv12.data());
    output_stop();
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    const std::string head = "YUV4MPEG2 W320 H192 F5:1 Ip A1:1 C420jpeg XCOLORRANGE=LIMITED\n",
                      frame = "FRAME\n";
    ASSERT_EQ(text.str().size(), head.size() + 2 * (frame.size() + nv12.size()));
    EXPECT_EQ(text.str().substr(0, head.size() + frame.size()), head + frame);
    const std::string kept = text.str();
    const uint8_t *second =
        reinterpret_cast<const uint8_t *>(kept.data()) + head.size() + 2 * frame.size() + nv12.size();
    EXPECT_EQ(second[0], 17);
    EXPECT_EQ(second[320 * 192 - 1], nv12[320 * 192 - 1]);
    const size_t u = 320 * 192, v = u + 160 * 96;
    for (size_t i : {0, 1, 15359}) {
        EXPECT_EQ(second[u + i], nv12[u + 2 * i]) << i;
        EXPECT_EQ(second[v + i], nv12[u + 2 * i + 1]) << i;
    }
}

TEST_F(Output, TruthIsWrittenForEachPictureOfAScene)
{
    const std::string path = root + "/truth.jsonl";
    options.truth = path.c_str();
    start();
    show(0, {}); // no picture, no truth
    AVFrame *other = av_frame_alloc();
    frame_result result = {};
    result.picture = other;
    output_result(&result);
    av_frame_free(&other);
    const rendered_settings scene = {"person-crosses", false, false, false};
    ASSERT_EQ(rendered_open(&scene), 0);
    for (uint64_t number : {3, 7}) {
        AVFrame *frame = rendered_picture(number);
        ASSERT_NE(frame, nullptr);
        result.picture = frame;
        result.number = number + 100;
        output_result(&result);
        av_frame_free(&frame);
    }
    rendered_close();
    output_stop();
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    ASSERT_EQ(lines.size(), 2u);
    for (size_t i = 0; i < 2; i++) {
        json_object *object = json_tokener_parse(lines[i].c_str());
        ASSERT_NE(object, nullptr) << lines[i];
        EXPECT_EQ(json_object_get_int(json_object_object_get(object, "number")), i == 0 ? 103 : 107);
        EXPECT_NEAR(json_object_get_double(json_object_object_get(object, "time")), i == 0 ? 0.6 : 1.4, 1e-6);
        json_object_put(object);
    }
}

TEST_F(Output, FilesThatCannotBeOpenedAreSaid)
{
    OutputCapture errors(STDERR_FILENO);
    const std::string path = root + "/none/file";
    options.truth = path.c_str();
    EXPECT_EQ(output_start(loop, &options), -1);
    options.truth = nullptr;
    options.frames = path.c_str();
    EXPECT_EQ(output_start(loop, &options), -1);
    EXPECT_THAT(errors.text(), HasSubstr(path + ": No such file or directory"));
}

TEST_F(Output, FilesThatCannotBeWrittenAreSaid)
{
    OutputCapture errors(STDERR_FILENO);
    options.frames = "/dev/full";
    start();
    const std::vector<uint8_t> nv12(320 * 192 * 3 / 2);
    output_sent(nv12.data());
    output_stop();
    EXPECT_THAT(errors.text(), HasSubstr("/dev/full: not all of it could be written"));
}

TEST_F(Output, ARecordingGetsEveryEvent)
{
    const std::string folder = root + "/recording";
    options.record = folder.c_str();
    options.summary_only = true;
    start();
    show(12400, {"PeopleMotion", "Door"}, 1);
    std::stringstream text;
    text << std::ifstream(folder + "/events.jsonl").rdbuf();
    EXPECT_EQ(text.str(), "{\"time_ms\":12400,\"event\":\"PeopleMotion\",\"boxes\":[[120,40,60,130]]}\n"
                          "{\"time_ms\":12400,\"event\":\"Door\",\"boxes\":[]}\n");
}

TEST_F(Output, ARecordingThatCannotBeMadeIsNoCamera)
{
    options.record = "/nowhere/at/all";
    OutputCapture errors(STDERR_FILENO);
    EXPECT_EQ(output_start(loop, &options), -1);
}

// ---- Status ----

struct Parsed {
    explicit Parsed(const std::string &text) : top(json_tokener_parse(text.c_str())) {}
    ~Parsed() { json_object_put(top); }
    // "frames.sent" as text; "(none)" where there is none.
    std::string operator[](const std::string &path) const
    {
        json_object *at = top;
        std::stringstream names(path);
        for (std::string name; std::getline(names, name, '.');)
            if (!json_object_object_get_ex(at, name.c_str(), &at))
                return "(none)";
        return at ? json_object_to_json_string_ext(at, JSON_C_TO_STRING_PLAIN) : "null";
    }
    json_object *top;
};

TEST_F(Output, TheStatusTellsEverythingThatIsCounted)
{
    options.source = "clip.mp4";
    options.fast = true;
    start();
    show(200, {"PeopleMotion"}, 1);
    fake.frames = {};
    fake.frames.sent = 11;
    fake.frames.analysed = 12;
    fake.frames.compared = 13;
    fake.frames.lost = 14;
    fake.frames.with_motion = 15;
    fake.frames.with_people = 16;
    fake.frames.last_time_ms = 17;
    fake.frames.connected = true;
    fake.live = true;
    fake.reopened = 18;
    fake.commands = {};
    fake.commands.commands = 19;
    fake.commands.refused = 20;
    fake.commands.clients = 21;
    fake.daemon = {};
    fake.daemon.pid = 22;
    fake.daemon.up_ms = 23;
    fake.daemon.restarts = 24;
    fake.daemon.threads = 25;
    fake.daemon.cpu_s = 0.026;
    fake.daemon.peak_kib = 27;
    fake.isp.mode = ISP_MODE_NIGHT;
    fake.isp.wdr = true;
    fake.isp.grid[1] = 28;
    fake.isp.pwm_duty_percent = 29;
    fake.isp.tracking = true;
    fake.isp.track.box[0] = {1, 2, 3, 4};
    fake.sound = {30, 31, 32, 33, true, true, -17.25};
    const Parsed status(status_json());
    const std::pair<const char *, const char *> wanted[] = {
        {"source.name", "\"clip.mp4\""},
        {"source.time_ms", "17"},
        {"source.live", "true"},
        {"source.reopened", "18"},
        {"fast", "true"},
        {"frames.sent", "11"},
        {"frames.analysed", "12"},
        {"frames.compared", "13"},
        {"frames.dropped", "14"},
        {"frames.with_motion", "15"},
        {"frames.with_people", "16"},
        {"events", "{\"PeopleMotion\":1}"},
        {"commands.answered", "19"},
        {"commands.refused", "20"},
        {"commands.clients", "21"},
        {"commands.last_age_ms", "null"},
        {"commands.last_tracking_age_ms", "null"},
        {"daemon.connected", "true"},
        {"daemon.pid", "22"},
        {"daemon.up_ms", "23"},
        {"daemon.restarts", "24"},
        {"daemon.threads", "25"},
        {"daemon.cpu_ms", "26"},
        {"daemon.peak_kib", "27"},
        {"picture.night", "true"},
        {"picture.wdr", "true"},
        {"picture.colour_transform", "false"},
        {"picture.motion_grid", "false"},
        {"picture.pwm_duty_percent", "29"},
        {"picture.tracking", "true"},
        {"picture.boxes", "[[1,2,3,4]]"},
        {"sound.loud", "true"},
        {"sound.level_db", "-17.2"},
        {"sound.asked", "30"},
        {"sound.answered_loud", "31"},
        {"sound.told", "32"},
    };
    for (const auto &[path, value] : wanted)
        EXPECT_EQ(status[path], value) << path;
    EXPECT_THAT(status["picture.grid"], testing::StartsWith("[0,28,0,"));
}

TEST_F(Output, AgesAreInMilliseconds)
{
    start();
    ev_now_update(loop);
    fake.commands.last_command_at = ev_now(loop) - 1.5;
    fake.frames.last_result_at = ev_now(loop) + 1; // a clock that was set back is no age below nothing
    const Parsed status(status_json());
    EXPECT_EQ(status["commands.last_age_ms"], "1500");
    EXPECT_EQ(status["commands.last_tracking_age_ms"], "0");
}

TEST_F(Output, WithoutADaemonOrAFileTheyAreNull)
{
    options.daemon = nullptr;
    start();
    fake.frames = {};
    fake.sound = {};
    const Parsed status(status_json());
    EXPECT_EQ(status["sound"],
              "{\"loud\":false,\"level_db\":null,\"asked\":0,\"answered_loud\":0,\"told\":0}");
    EXPECT_EQ(status["source.name"], "\"shapes\"");
    EXPECT_EQ(status["daemon"], "{\"connected\":false}");
}

// ---- Window ----

// A player of pictures that writes what it is given to a file, after `before`.
void install_player(const std::string &before)
{
    mkdir((root + "/bin").c_str(), 0755);
    const std::string player = root + "/bin/ffplay";
    std::ofstream(player) << "#!/bin/sh\necho \"$@\" >" << root << "/arguments\n"
                          << before << "\nexec cat >" << root << "/pictures\n";
    chmod(player.c_str(), 0755);
    setenv("PATH", (root + "/bin:" + getenv("PATH")).c_str(), 1);
}

size_t size_of(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? static_cast<size_t>(status.st_size) : 0;
}

TEST_F(Output, TheWindowGetsWholePictures)
{
    install_player("");
    window_start(loop);
    const size_t whole = static_cast<size_t>(VIEW_WIDTH) * VIEW_HEIGHT * 4;
    const std::vector<uint32_t> picture(VIEW_WIDTH * VIEW_HEIGHT, 0x11223344);
    for (size_t shown = 1; shown <= 3; shown++) {
        window_picture(picture.data());
        for (int i = 0; i < 2000 && size_of(root + "/pictures") < shown * whole; i++) {
            ev_run(loop, EVRUN_NOWAIT);
            usleep(2000);
        }
        EXPECT_EQ(size_of(root + "/pictures"), shown * whole);
    }
    std::stringstream arguments;
    arguments << std::ifstream(root + "/arguments").rdbuf();
    EXPECT_THAT(arguments.str(), HasSubstr("-pixel_format bgr0 -video_size 640x384 -framerate 5"));
    window_stop();
}

TEST_F(Output, ASlowWindowLosesPicturesAndHoldsUpNobody)
{
    install_player("while [ ! -e " + root + "/go ]; do sleep 0.01; done");
    window_start(loop);
    std::vector<uint32_t> picture(VIEW_WIDTH * VIEW_HEIGHT, 1);
    for (uint32_t number = 1; number <= 50; number++) {
        picture.assign(picture.size(), number);
        window_picture(picture.data());
        ev_run(loop, EVRUN_NOWAIT);
    }
    std::ofstream(root + "/go") << "go";
    const size_t whole = picture.size() * 4;
    for (int i = 0; i < 2000 && size_of(root + "/pictures") < whole; i++) {
        ev_run(loop, EVRUN_NOWAIT);
        usleep(2000);
    }
    picture.assign(picture.size(), 99);
    window_picture(picture.data());
    for (int i = 0; i < 2000 && size_of(root + "/pictures") < 2 * whole; i++) {
        ev_run(loop, EVRUN_NOWAIT);
        usleep(2000);
    }
    EXPECT_EQ(size_of(root + "/pictures"), 2 * whole);
    std::ifstream file(root + "/pictures", std::ios::binary);
    std::vector<uint32_t> shown(2 * picture.size());
    file.read(reinterpret_cast<char *>(shown.data()), static_cast<std::streamsize>(2 * whole));
    EXPECT_EQ(shown.front(), 1u);
    EXPECT_EQ(shown[picture.size() - 1], 1u);
    EXPECT_EQ(shown[picture.size()], 99u);
    EXPECT_EQ(shown.back(), 99u);
    window_stop();
}

TEST_F(Output, AWindowThatIsClosedIsSaidOnce)
{
    signal(SIGPIPE, SIG_IGN); // as the program does
    install_player("exit 0");
    OutputCapture errors(STDERR_FILENO);
    window_start(loop);
    const std::vector<uint32_t> picture(VIEW_WIDTH * VIEW_HEIGHT, 1);
    for (int i = 0; i < 2000 && errors.text().empty(); i++) {
        window_picture(picture.data());
        ev_run(loop, EVRUN_NOWAIT);
        usleep(2000);
    }
    window_picture(picture.data());
    ev_run(loop, EVRUN_NOWAIT);
    EXPECT_EQ(errors.text(), "naro: the window is closed; going on without it (Ctrl-C ends the camera)\n");
    window_stop();
}

TEST_F(Output, WithoutAPlayerThereIsNoWindow)
{
    setenv("PATH", "/nowhere", 1);
    OutputCapture errors(STDERR_FILENO);
    window_start(loop);
    EXPECT_THAT(errors.text(), HasSubstr("no window: ffplay cannot be started: No such file or directory"));
    const std::vector<uint32_t> picture(VIEW_WIDTH * VIEW_HEIGHT, 1);
    window_picture(picture.data());
    window_stop();
}

} // namespace
