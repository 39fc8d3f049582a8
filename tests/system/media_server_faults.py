#!/usr/bin/env python3
"""The daemon and a media server that is not there, dies, hangs up, answers late or answers wrong. usage:
media_server_faults.py BIN_DIR

The daemon sends one tracking command for each picture that it has analysed: these are the commands that go wrong here.
In between it asks whether a sound is heard. That is answered as it should be; but a connection that is lost may be noticed
by either, so their lines are not told apart here."""
import re
import threading

from naro_system import *

REFUSED = "[naro_ipc_server_connect]connect error, errno=111\r"
SND_FAIL = "[naro_isp_track_run][snd][cmd_no=4139][fail]"
RCV_FAIL = "[naro_isp_track_run][rcv][cmd_no=4139][fail][1]"


def either(line):
    """What stands for the same line of either command: as a pattern to wait for, and told of what came."""
    track, question = "[naro_isp_track_run][%s][cmd_no=4139]", "[naro_audio_sound_result_get][%s][cmd_no=4145]"
    for way in ("snd", "rcv"):
        line = line.replace(question % way, track % way)
    return line


def either_pattern(line):
    return re.compile("|".join(re.escape(text) for text in (line, line.replace("naro_isp_track_run", "naro_audio_sound_result_get")
                                                            .replace("4139", "4145"))))


def heard(request):
    """The answer that a sound is heard."""
    request.send(reply(request.cmd_no + 1, 0, b"\1\0\0\0"))


class MediaServerFaults(SystemTest):
    def running_daemon(self):
        """A server, and a daemon whose commands go well."""
        self.server = self.media_server()
        self.daemon = self.start("naro_algo")
        self.server.wait_for_connections(1)
        self.raw_stream()
        self.server.wait_for_requests(2)
        self.assertEqual(self.daemon.errors(), [])

    def errors_from(self, mark, count):
        """The next `count` errors after a mark."""
        self.daemon.wait_for_errors(count, mark)
        return self.errors(mark)[:count]

    def errors(self, mark):
        return [either(line) for line in self.daemon.errors(mark)]

    def wait_for_either(self, line, mark):
        self.daemon.wait_for(either_pattern(line), since=mark)

    def expect_all_is_well(self):
        """Commands come, on the newest connection, and no further error."""
        mark = self.daemon.mark()
        count = len(self.server.requests)
        self.server.wait_for_requests(count + 4)
        self.assertEqual(self.daemon.errors(mark), [])
        self.assertEqual({request.number for request in self.server.requests[count:]},
                         {len(self.server.connections) - 1})
        self.assertEqual(self.daemon.stop(), 255)

    # ---- Not there

    def test_absent_at_start(self):
        daemon = self.daemon = self.start("naro_algo")
        lines = [daemon.wait_for(REFUSED, times=n) for n in (1, 2, 3, 4, 5)]
        for line in lines:
            self.assertEqual(line, REFUSED)
            self.assertEqual(line.level, "err")
        # Half a second apart: how late a line may be on a busy machine nobody knows, but none comes early.
        self.assertGreaterEqual(lines[-1].at - lines[0].at, 0.499 * (len(lines) - 1))
        self.server = self.media_server()
        self.server.wait_for_connections(1)
        self.raw_stream()
        daemon.wait_for("get 1st frame ok")
        self.expect_all_is_well()
        self.assertEqual(len(daemon.found("socket error")), 0)
        self.assertEqual(len(self.server.connections), 1)

    # ---- Gone

    def test_killed_with_the_request_unread(self):
        self.running_daemon()
        self.server.leave_unread(True)
        self.server.wait_for_unread(116)
        mark = self.daemon.mark()
        self.server.kill()
        self.server.leave_unread(False)
        # The lost command waits for the server inside itself, and fails when it is back.
        for n in (1, 2):
            self.assertEqual(self.daemon.wait_for(REFUSED, since=mark, times=n), REFUSED)
        self.assertEqual(set(self.daemon.errors(mark)), {REFUSED})
        self.server.listen()
        self.wait_for_either(RCV_FAIL, mark)
        refusals = len(self.daemon.found(REFUSED, mark))
        self.assertEqual(self.errors(mark),
                         [REFUSED] * refusals + ["cmd rcv error, rsize = -1\r", RCV_FAIL])
        self.expect_all_is_well()

    def test_killed_with_the_request_read(self):
        self.running_daemon()
        mark = self.daemon.mark()

        def die(request):
            self.server.kill()
            return False

        self.server.next(die)
        # The stream ends: a count of 0, which reconnects nothing. The next command finds the connection gone.
        self.daemon.wait_for(REFUSED, since=mark, times=2)
        self.server.listen()
        self.wait_for_either(SND_FAIL, mark)
        refusals = len(self.daemon.found(REFUSED, mark))
        self.assertEqual(self.errors(mark),
                         ["cmd rcv error, rsize = 0\r", RCV_FAIL] + [REFUSED] * refusals +
                         ["cmd snd error, wsize = -1\r", SND_FAIL])
        self.expect_all_is_well()

    def test_killed_between_commands_and_back_at_once(self):
        self.running_daemon()
        mark = self.daemon.mark()
        self.server.hang_up()
        self.server.wait_for_connections(2)
        errors = self.errors_from(mark, 2)
        self.assertIn(errors, (["cmd snd error, wsize = -1\r", SND_FAIL], ["cmd rcv error, rsize = 0\r", RCV_FAIL],
                               ["cmd rcv error, rsize = -1\r", RCV_FAIL]))
        self.wait_for_either(SND_FAIL if "rsize = 0" in errors[0] else errors[1], mark)
        self.expect_all_is_well()

    def test_killed_again_and_again(self):
        self.running_daemon()
        for n in range(5):
            self.server.wait_for_more_requests(1)
            self.server.kill()
            self.server.listen()
            self.server.wait_for_connections(n + 2)
        self.server.wait_for_more_requests(2)
        self.expect_all_is_well()

    # ---- In the middle of a reply

    def closing_mid_reply(self, length):
        self.running_daemon()
        mark = self.daemon.mark()
        self.server.next(close(reply(4140)[:length]))
        self.assertEqual(self.errors_from(mark, 4), [f"cmd rcv error, rsize = {length}\r", RCV_FAIL,
                                                     "cmd snd error, wsize = -1\r", SND_FAIL])
        self.expect_all_is_well()

    def test_closing_after_one_byte(self):
        self.closing_mid_reply(1)

    def test_closing_after_the_header(self):
        self.closing_mid_reply(16)

    def test_closing_before_the_last_byte(self):
        self.closing_mid_reply(23)

    # ---- Late

    def test_late_answers_are_waited_for(self):
        self.running_daemon()
        mark = self.daemon.mark()
        for _ in range(3):
            now = threading.Event()
            before = len(self.server.requests)
            self.server.next(late(now))
            self.server.wait_for_requests(before + 1)
            # Pictures go on coming meanwhile, but no second command, and nothing is given up.
            feeder = self.programs[-1]
            feeder.wait_for("rawcap", since=feeder.mark(), times=8)
            self.assertEqual(len(self.server.requests), before + 1)
            now.set()
        self.server.wait_for_more_requests(1)
        self.assertEqual(self.daemon.errors(mark), [])
        self.expect_all_is_well()

    # ---- Wrong

    def test_a_refusal(self):
        self.running_daemon()
        mark = self.daemon.mark()
        self.server.next(answer(ret=5), answer(ret=0xFFFFFFFF))
        self.assertEqual(self.errors_from(mark, 2),
                         ["[naro_isp_track_run][cmd_no=4140][ret=5][param] get error",
                          "[naro_isp_track_run][cmd_no=4140][ret=-1][param] get error"])
        self.expect_all_is_well()
        self.assertEqual(len(self.server.connections), 1)

    def test_a_wrong_number(self):
        self.running_daemon()
        mark = self.daemon.mark()
        self.server.next(answer(plus=0), answer(plus=2))
        self.assertEqual(self.errors_from(mark, 2),
                         ["[naro_isp_track_run][cmd_no=4139][ret=0][param] get error",
                          "[naro_isp_track_run][cmd_no=4141][ret=0][param] get error"])
        self.expect_all_is_well()
        self.assertEqual(len(self.server.connections), 1)

    def test_a_short_reply(self):
        self.running_daemon()
        mark = self.daemon.mark()
        self.server.next(raw(reply(4140)[:12]))
        self.assertEqual(self.errors_from(mark, 2), ["cmd rcv error, rsize = 12\r", RCV_FAIL])
        self.expect_all_is_well()  # nothing of it is left in the stream
        self.assertEqual(len(self.server.connections), 1)

    def test_a_surplus_spoils_replies_until_the_connection_is_lost(self):
        self.running_daemon()
        # A question in between would be given a reply, too. After a sound there is none for two seconds; a machine that
        # is too slow for that gets another try.
        for _ in range(20):
            self.server.next_sound(answer(), heard)
            self.server.wait_for_more_questions(2)
            questions = len(self.server.questions)
            mark = self.daemon.mark()
            # One reply too many; the ones after it are told apart by what they refuse with.
            self.server.next(answer(surplus=reply(4140, ret=100)), *(answer(ret=n) for n in (1, 2, 3, 4)))
            errors = self.errors_from(mark, 4)
            alone = len(self.server.questions) == questions
            if alone:
                break
            self.server.hang_up()
            self.server.wait_for_more_requests(8)  # the planned ones are over, and the connection is another
        # Each command is given the reply to the one before.
        self.assertEqual(errors, [f"[naro_isp_track_run][cmd_no=4140][ret={n}][param] get error" for n in (100, 1, 2, 3)])
        connections = len(self.server.connections)
        self.server.hang_up()
        self.server.wait_for_connections(connections + 1)
        self.server.wait_for_more_requests(2)
        self.expect_all_is_well()


if __name__ == "__main__":
    main()
