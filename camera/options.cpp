// The camera's command line.
#include "options.h"

#include <errno.h>
#include <getopt.h>
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "desk.h"
#include "motor_model.h"
#include "rendered.h"
#include "sound.h"
#include "world.h"

namespace
{

const char help[] =
    "usage: naro_camera [options]\n"
    "\n"
    "A whole camera on a desk, around the daemon naro_algo: it plays a source, gives the daemon its frames, "
    "answers\n"
    "its commands, starts it again when it ends, and prints every event on a line of standard output:\n"
    "    00:12.400  PeopleMotion  [120,40 60x130]\n"
    "that is the source's time, what was seen, and people's boxes (x,y width x height in pixels of 320x192). "
    "At the\n"
    "end comes a summary. Ctrl-C ends it.\n"
    "\n"
    "  --source WHAT    what the camera looks at:\n"
    "                     a video file, a URL (RTSP, HTTP, ...) or a capture device (/dev/video0);\n"
    "                     scene:NAME, a scene in a rendered room (--scenes lists them; a path that ends in "
    ".json is\n"
    "                     a scene, too; scenes/random?seed=N is an endless evening at home);\n"
    "                     shapes, a generated picture of moving shapes.\n"
    "                   Without it: scene:arrival, again and again\n"
    "  --scenes         list the scenes, each with what a good camera does in it\n"
    "  --loop           play a file or a scene again and again\n"
    "  --fast           as fast as the daemon analyses, five frames for each second of the source\n"
    "  --seconds N      stop after N seconds of the source\n"
    "  --record DIR     write DIR/video.mp4, with boxes and events drawn in, and DIR/events.jsonl (both are "
    "written\n"
    "                   over)\n"
    "  --truth FILE     of a scene: write what is really to be seen in each frame, one JSON object a line\n"
    "  --set KEY=VALUE  a setting of the configuration service, set before the first frame; may be repeated\n"
    "  --lights WHO     who drives filter and lamps of a scene: scene (its own file; the default) or daemon\n"
    "  --lux FILE       a schedule of light that the ISP reports: lines of seconds and lux (docs/camera.md)\n"
    "  --sound FILE     a schedule of what is heard, instead of the source's own sound: lines of seconds and "
    "loud or\n"
    "                   quiet (docs/camera.md). --fast hears nothing\n"
    "  --sound-threshold DB  from which level on the source's sound is loud (-90 to 0 dBFS; without it, "
    "-15)\n"
    "  --no-motor       the view does not turn; without it, a motor's process turns it as the daemon asks "
    "(setting\n"
    "                   track_switch), in a scene or, with --wide, in a video. --fast goes without a motor\n"
    "  --motor KEY=VALUE  another motor than the usual one; may be repeated (naro_motor --help lists the "
    "keys)\n"
    "  --wide SHARE     of a video, show a window of that share (0.1 to 1) of the largest that has the "
    "analysis\n"
    "                   picture's shape; the motor moves it about in the video\n"
    "  --card WHAT      the SD card: folder, one that lasts (the default); none; or a size such as 64K or "
    "4M, a card in\n"
    "                   memory that can be filled and locked (naro-card does that)\n"
    "  --gpu            draw scenes with a graphics card where there is one; without it they come out the "
    "same in\n"
    "                   every run on a machine\n"
    "  --window         show the picture in a window (needs ffplay and a display)\n"
    "  --headless       no window (that is so unless --window is given)\n"
    "  --json           events and summary as JSON, one object a line\n"
    "  --summary        no events, only the summary\n"
    "  --verbose        the daemon's log lines too (else they go to run/naro/naro_algo.log under the root)\n"
    "  --help           this text\n"
    "\n"
    "For tests:\n"
    "  --daemon PATH    the daemon to start (default: naro_algo beside this program)\n"
    "  --no-daemon      start none; one that is started by hand with the same NARO_ROOT finds the camera\n"
    "  --scenario FILE  misbehave as the file says (camera/scenario.h describes it)\n"
    "  --frames FILE    write the pictures that the daemon is sent, as Y4M; played as a --source they are "
    "the same\n"
    "  --listeners N    wait for N receivers of the raw stream before the first frame (default 1: the "
    "daemon)\n"
    "\n"
    "NARO_ROOT names the folder in which all sockets and files of the camera live. Without it, that is "
    "\"naro\" in\n"
    "the user's runtime folder, or /tmp/naro-<user number>. naro-events and naro-status look there, too.\n";

enum {
    LONG_FAST = 256,
    LONG_SECONDS,
    LONG_RECORD,
    LONG_WINDOW,
    LONG_HEADLESS,
    LONG_JSON,
    LONG_SUMMARY,
    LONG_VERBOSE,
    LONG_DAEMON,
    LONG_NO_DAEMON,
    LONG_SCENARIO,
    LONG_LISTENERS,
    LONG_SOURCE,
    LONG_LOOP,
    LONG_SCENES,
    LONG_TRUTH,
    LONG_GPU,
    LONG_SET,
    LONG_FRAMES,
    LONG_LIGHTS,
    LONG_CARD,
    LONG_LUX,
    LONG_SOUND,
    LONG_SOUND_THRESHOLD,
    LONG_NO_MOTOR,
    LONG_MOTOR,
    LONG_WIDE
};

const option long_options[] = {
    {"source", required_argument, nullptr, LONG_SOURCE},
    {"loop", no_argument, nullptr, LONG_LOOP},
    {"scenes", no_argument, nullptr, LONG_SCENES},
    {"truth", required_argument, nullptr, LONG_TRUTH},
    {"gpu", no_argument, nullptr, LONG_GPU},
    {"set", required_argument, nullptr, LONG_SET},
    {"frames", required_argument, nullptr, LONG_FRAMES},
    {"lights", required_argument, nullptr, LONG_LIGHTS},
    {"lux", required_argument, nullptr, LONG_LUX},
    {"card", required_argument, nullptr, LONG_CARD},
    {"sound", required_argument, nullptr, LONG_SOUND},
    {"sound-threshold", required_argument, nullptr, LONG_SOUND_THRESHOLD},
    {"no-motor", no_argument, nullptr, LONG_NO_MOTOR},
    {"motor", required_argument, nullptr, LONG_MOTOR},
    {"wide", required_argument, nullptr, LONG_WIDE},
    {"fast", no_argument, nullptr, LONG_FAST},
    {"seconds", required_argument, nullptr, LONG_SECONDS},
    {"record", required_argument, nullptr, LONG_RECORD},
    {"window", no_argument, nullptr, LONG_WINDOW},
    {"headless", no_argument, nullptr, LONG_HEADLESS},
    {"json", no_argument, nullptr, LONG_JSON},
    {"summary", no_argument, nullptr, LONG_SUMMARY},
    {"verbose", no_argument, nullptr, LONG_VERBOSE},
    {"daemon", required_argument, nullptr, LONG_DAEMON},
    {"no-daemon", no_argument, nullptr, LONG_NO_DAEMON},
    {"scenario", required_argument, nullptr, LONG_SCENARIO},
    {"listeners", required_argument, nullptr, LONG_LISTENERS},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

const double SECONDS_MAX = 1e9;

bool read_seconds(const char *text, uint64_t *ms)
{
    char *end;
    errno = 0;
    const double seconds = strtod(text, &end);
    if (end == text || *end || errno != 0 || !(seconds > 0) || seconds > SECONDS_MAX) {
        desk_say("--seconds wants a number above 0, not \"%s\"", text);
        return false;
    }
    *ms = static_cast<uint64_t>(ceil(seconds * 1000));
    return true;
}

bool read_listeners(const char *text, int *count)
{
    char *end;
    errno = 0;
    const long number = strtol(text, &end, 10);
    if (end == text || *end || errno != 0 || number < 1 || number > 100) {
        desk_say("--listeners wants a number from 1 to 100, not \"%s\"", text);
        return false;
    }
    *count = static_cast<int>(number);
    return true;
}

bool read_motor(const char *text, camera_options *options)
{
    motor_parameters motor = motor_parameters_usual();
    std::string error;
    options->motor_settings.emplace_back(text);
    for (const std::string &setting : options->motor_settings) {
        if (motor_parameter_set(&motor, setting.c_str(), &error) != 0) {
            desk_say("--motor \"%s\": %s", text, error.c_str());
            return false;
        }
    }
    return true;
}

bool read_threshold(const char *text, double *db)
{
    char *end;
    *db = strtod(text, &end);
    if (end != text && !*end && *db >= SOUND_THRESHOLD_MIN_DB && *db <= 0)
        return true;
    desk_say("--sound-threshold wants a number from -90 to 0, not \"%s\"", text);
    return false;
}

bool read_wide(const char *text, double *share)
{
    char *end;
    *share = strtod(text, &end);
    if (end != text && !*end && *share >= 0.1 && *share <= 1)
        return true;
    desk_say("--wide wants a number from 0.1 to 1, not \"%s\"", text);
    return false;
}

bool read_setting(const char *text, camera_options *options)
{
    const char *sign = strchr(text, '=');
    if (!sign || sign == text) {
        desk_say("--set wants KEY=VALUE, not \"%s\"", text);
        return false;
    }
    options->settings.emplace_back(std::string(text, static_cast<size_t>(sign - text)), sign + 1);
    return true;
}

// The daemon lies beside this program, wherever that was started from.
const char *daemon_beside(void)
{
    static char path[PATH_MAX + sizeof "naro_algo"];
    options_beside("naro_algo", path, sizeof path);
    return path;
}

void list_scenes(void)
{
    for (const std::string &name : world_names()) {
        world *scene = world_open(name.c_str());
        if (!scene)
            continue; // it was said why
        printf("%-24s %s\n", name.c_str(), world_story(scene));
        world_close(scene);
    }
}

} // namespace

void options_beside(const char *program, char *path, size_t size)
{
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    self[length > 0 ? length : 0] = '\0';
    char *slash = strrchr(self, '/');
    if (slash)
        slash[1] = '\0';
    snprintf(path, size, "%s%s", self, program);
}

int options_parse(int argc, char **argv, camera_options *options)
{
    *options = {};
    options->daemon = daemon_beside();
    options->motor = true;
    options->listeners = 1;
    options->card = "folder";
    options->sound_threshold_db = SOUND_THRESHOLD_DB;
    int choice;
    optind = 0; // from the beginning, also when it was here before
    while ((choice = getopt_long(argc, argv, "h", long_options, nullptr)) != -1) {
        switch (choice) {
        case LONG_SOURCE:
            options->source = optarg;
            break;
        case LONG_LOOP:
            options->loop = true;
            break;
        case LONG_SCENES:
            list_scenes();
            return 1;
        case LONG_TRUTH:
            options->truth = optarg;
            break;
        case LONG_GPU:
            options->gpu = true;
            break;
        case LONG_SET:
            if (!read_setting(optarg, options))
                return -1;
            break;
        case LONG_FRAMES:
            options->frames = optarg;
            break;
        case LONG_LIGHTS:
            options->daemon_lights = strcmp(optarg, "daemon") == 0;
            if (!options->daemon_lights && strcmp(optarg, "scene") != 0) {
                desk_say("--lights wants scene or daemon, not \"%s\"", optarg);
                return -1;
            }
            break;
        case LONG_CARD:
            options->card = optarg;
            break;
        case LONG_LUX:
            options->lux = optarg;
            break;
        case LONG_SOUND:
            options->sound = optarg;
            break;
        case LONG_SOUND_THRESHOLD:
            if (!read_threshold(optarg, &options->sound_threshold_db))
                return -1;
            break;
        case LONG_NO_MOTOR:
            options->motor = false;
            break;
        case LONG_MOTOR:
            if (!read_motor(optarg, options))
                return -1;
            break;
        case LONG_WIDE:
            if (!read_wide(optarg, &options->wide))
                return -1;
            break;
        case LONG_FAST:
            options->fast = true;
            break;
        case LONG_SECONDS:
            if (!read_seconds(optarg, &options->end_ms))
                return -1;
            break;
        case LONG_RECORD:
            options->record = optarg;
            break;
        case LONG_WINDOW:
            options->window = true;
            break;
        case LONG_HEADLESS:
            options->window = false;
            break;
        case LONG_JSON:
            options->json = true;
            break;
        case LONG_SUMMARY:
            options->summary_only = true;
            break;
        case LONG_VERBOSE:
            options->verbose = true;
            break;
        case LONG_DAEMON:
            options->daemon = optarg;
            break;
        case LONG_NO_DAEMON:
            options->daemon = nullptr;
            break;
        case LONG_SCENARIO:
            options->scenario = optarg;
            break;
        case LONG_LISTENERS:
            if (!read_listeners(optarg, &options->listeners))
                return -1;
            break;
        case 'h':
            fputs(help, stdout);
            return 1;
        default:
            fputs("naro_camera --help tells the options\n", stderr);
            return -1;
        }
    }
    if (optind < argc) {
        desk_say("\"%s\" is no option; a source goes behind --source", argv[optind]);
        return -1;
    }
    if (!options->source) {
        options->source = "scene:" RENDERED_DEFAULT;
        options->loop = true;
    }
    // A motor turns in its own time, which --fast leaves behind; and a run would not be the same twice.
    if (options->fast && !options->motor_settings.empty()) {
        desk_say("--fast goes without a motor");
        return -1;
    }
    options->motor = options->motor && !options->fast;
    if (options->fast && options->sound) {
        desk_say("--fast hears nothing: the daemon asks for sounds by its own clock");
        return -1;
    }
    const char *scene;
    if (options->wide > 0 && rendered_is_scene(options->source, &scene)) {
        desk_say("--wide is for videos: in a scene the camera itself turns");
        return -1;
    }
    if (options->truth && !rendered_is_scene(options->source, &scene)) {
        desk_say("--truth is for scenes: of \"%s\" nobody knows it", options->source);
        return -1;
    }
    return 0;
}
