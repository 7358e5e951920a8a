#!/usr/bin/python3
"""Pictures of each page of the window: screenshots.py BUILD SAMPLES FOLDER [PAGE]

Without a page it makes all of them, each in a process of its own. Needs x11-apps, imagemagick and
xdotool; fonts-noto-color-emoji for the sun in a name.
"""
import os
import shutil
import subprocess
import sys
from pathlib import Path

from stage import Stage

BUILD, SAMPLES, FOLDER = sys.argv[1], Path(sys.argv[2]), Path(sys.argv[3])
SPACE = ("--free-bytes", "6900m", "--total-bytes", "7600m")


def no_phone(stage):
    stage.start_window()
    stage.see("Plug In an iPhone")


def help_without_phone(stage):
    stage.start_window()
    stage.see_part("The phone does not appear?")
    stage.click(340, 505)
    stage.see_part("usbmux daemon")


def not_paired(stage):
    stage.start_phone("--unpaired", "--session", "ssl3")
    stage.start_window()
    stage.see_part("holds no pair record")


def empty(stage):
    stage.start_phone(*SPACE)
    stage.start_window()
    stage.see("No Ringtones Yet")


def with_ringtones(stage, *options):
    stage.start_phone(*SPACE, *options)
    stage.vesk("add", SAMPLES / "bells.mp3", SAMPLES / "harp.m4a", SAMPLES / "horn.aiff")
    stage.start_window()
    stage.see("Harp", "list item")


def ringtones(stage):
    with_ringtones(stage)


def edits(stage):
    with_ringtones(stage)
    songs = stage.folder / "songs"
    songs.mkdir()
    (songs / "letter.txt").write_text("no song")
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "sine=frequency=440:duration=45",
                    "-metadata", "title=Long Walk", songs / "walk.flac"], check=True)
    stage.open_in_window(songs, SAMPLES / "sunrise.m4r", SAMPLES / "harp.m4a")
    stage.press("Remove “Horn”")
    stage.see_part("1 to be removed")
    stage.see_part("2 new")


def renaming(stage):
    with_ringtones(stage)
    stage.press("Rename “Horn”")
    stage.write("Name of “Horn”", "Bugle")
    stage.press("Take This Name")
    stage.see("Rename “Bugle”", "push button")
    stage.press("Rename “Harp”")
    stage.write("Name of “Harp”", "Bugle")
    stage.see_part("already")


def editor(stage):
    with_ringtones(stage)
    song = stage.folder / "walk.flac"
    sound = "(0.15+0.5*between(t,62,110)+0.2*sin(t/9))*sin(2*PI*(300+40*floor(2*t))*t)*exp(-3*mod(t,0.5))"
    subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"aevalsrc='{sound}':s=44100:d=200",
                    "-metadata", "title=Long Walk", song], check=True)
    stage.open_in_window(song)
    stage.press("Edit “Long Walk”")
    stage.watched_window = 1
    stage.see("Start 0:00.0")
    stage.press("Suggest")
    stage.see_none("Start 0:00.0")


def syncing(stage):
    with_ringtones(stage, "--link-speed", "1500")
    stage.open_in_window(SAMPLES / "sunrise.m4r", SAMPLES / "tick.wav", SAMPLES / "two-tone.mp3")
    stage.press("Sync 3")
    stage.see_part("Ringtone 2 of 3")


def paused(stage):
    with_ringtones(stage, "--link-speed", "1500")
    stage.open_in_window(SAMPLES / "sunrise.m4r", SAMPLES / "tick.wav", SAMPLES / "two-tone.mp3")
    stage.press("Sync 3")
    stage.press("Pause")
    stage.see("Continue", "push button")
    stage.see("Paused")


def preferences(stage):
    with_ringtones(stage)
    stage.key("ctrl+comma")
    stage.watched_window = 1
    stage.see_part("Syncs That Can Be Undone")


def choose_mirror(stage, folder):
    folder.mkdir()
    for song in ("harp.m4a", "sunrise.m4r", "tick.wav"):
        shutil.copy(SAMPLES / song, folder)
    with_ringtones(stage)
    stage.key("ctrl+m")
    stage.watched_window = 1
    stage.see("Choose the Folder That the Phone Mirrors")
    stage.copy_text(str(folder))
    stage.key("ctrl+l", "ctrl+v", "Return")
    stage.see("Goes From the Phone")


def mirror_plan(stage):
    choose_mirror(stage, stage.folder / "Ringtones")


def mirror(stage):
    choose_mirror(stage, stage.folder / "Ringtones")
    stage.press("Mirror")
    stage.watched_window = 0
    stage.see("The phone holds what is in this folder")


def done(stage):
    with_ringtones(stage)
    stage.open_in_window(SAMPLES / "sunrise.m4r")
    stage.press("Sync 1")
    stage.see("1 ringtone added")


def history(stage):
    done(stage)
    stage.key("ctrl+h")
    stage.watched_window = 1
    stage.see("Go Back", "push button")


def interrupted(stage):
    with_ringtones(stage)
    stage.open_in_window(SAMPLES / "sunrise.m4r")
    stage.see("Sync 1", "push button")
    stage.tell_phone("fault afc/Write#2=unplug")
    stage.press("Sync 1")
    stage.see("“My Phone” Is Unplugged")
    stage.tell_phone("clear-faults")
    stage.tell_phone("plug")
    stage.see("The last sync of “My Phone” was interrupted")


def gone(stage):
    with_ringtones(stage)
    stage.press("Remove “Harp”")
    stage.see("Sync 1", "push button")
    stage.tell_phone("unplug")
    stage.see("“My Phone” Is Unplugged")


def failed(stage):
    with_ringtones(stage)
    stage.open_in_window(SAMPLES / "sunrise.m4r")
    stage.see("Sync 1", "push button")
    stage.tell_phone("fault afc/Write#1+=status:18")
    stage.press("Sync 1")
    stage.see("Details")


def taken_up(stage):
    with_ringtones(stage)
    stage.press("Remove “Horn”")
    stage.press("Rename “Harp”")
    stage.write("Name of “Harp”", "Lyre")
    stage.press("Take This Name")
    stage.see("Sync 2", "push button")
    stage.close_window()
    stage.start_window("--sink", "fakesink sync=true")
    stage.see("Your last changes to “My Phone” are here again")
    stage.press("Play “Lyre”")
    stage.see("Stop “Lyre”", "push button")


def searched(stage):
    with_ringtones(stage)
    stage.key("ctrl+f")
    stage.key("h", "a", "r")
    stage.see_none("Horn", "list item")


def several(stage):
    stage.start_phone(*SPACE, "--root", stage.folder / "other", "--name", "Old Phone", "--firmware", "1.0.2")
    stage.start_window()
    stage.see("My Phone")


def shortcuts(stage):
    with_ringtones(stage)
    stage.key("ctrl+question")
    stage.watched_window = 1
    stage.see("Look at the phone again")


def about(stage):
    with_ringtones(stage)
    subprocess.run(["gapplication", "action", "com.korvane.Vesk", "about"], check=True)
    stage.watched_window = 1
    stage.see("The KRLVesk authors")


PAGES = [no_phone, help_without_phone, not_paired, empty, ringtones, edits, renaming, editor, syncing, paused, preferences, mirror_plan, mirror, done, history,
         interrupted, gone, failed, taken_up, searched, several, shortcuts, about]

if __name__ == "__main__":
    FOLDER.mkdir(parents=True, exist_ok=True)
    if len(sys.argv) > 4:
        with Stage(BUILD, screen="680x640x24") as stage:
            settings = stage.folder / "config" / "gtk-4.0" / "settings.ini"
            with settings.open("a") as file:
                file.write("gtk-font-name=Cantarell 11\n")
            next(page for page in PAGES if page.__name__ == sys.argv[4])(stage)
            stage.settle()
            stage.picture(FOLDER / f"{sys.argv[4]}.png")
    else:
        for page in PAGES:
            subprocess.run([sys.executable, "-B", *sys.argv, page.__name__], check=False)
