#include "vesk/CommandTable.h"

#include "vesk/commands/Commands.h"

namespace vesk {

const std::vector<CommandRow>& commandTable() {
    static const std::vector<CommandRow> rows{
        {.name = "devices",
         .run = runDevices,
         .summary = "Show what is attached, also phones that are not paired and devices that are "
                    "no iPhones",
         .promise = "Changes nothing. Does not promise that a phone shown as usable can be opened: "
                    "that is found\nout by opening it (vesk info)."},
        {.name = "info",
         .run = runInfo,
         .summary = "Show a phone's name, firmware, free space and ringtones",
         .promise = "Changes nothing. The free space is what the phone says at that moment."},
        {.name = "watch",
         .run = runWatch,
         .summary = "Show phones as they come and go, and sync a folder with them, until Ctrl-C",
         .promise =
             "Changes nothing without --sync. What is attached already comes first. Ctrl-C "
             "ends with exit code 0.\nWith --sync: as vesk sync, each time that a phone comes "
             "or that the folder has changed and been\nleft alone for two seconds. Does not "
             "choose between several phones: it then wants --udid. An error\ndoes not end "
             "it; the next phone or change tries again.",
         .writes = true,
         .syncs = true,
         .takesYes = true,
         .takesSyncFolder = true,
         .prepares = true,
         .takesSongs = true,
         .takesFolder = true},
        {.name = "pair",
         .run = runPair,
         .summary = "Pair a phone with this computer",
         .promise = "Makes keys and certificates, has the phone take them and the usbmuxd daemon "
                    "keep them. Does\nnothing when the phone knows this computer already. Does not "
                    "change the phone's contents."},
        {.name = "unpair",
         .run = runUnpair,
         .summary = "End a phone's pairing with this computer",
         .promise = "The phone forgets this computer, and the usbmuxd daemon the keys. Does not "
                    "change the phone's\ncontents, nor its pairing with other computers."},
        {.name = "doctor",
         .run = runDoctor,
         .summary = "Look for what stands between you and a phone, and say what to do",
         .promise = "Changes nothing. Looks at the usbmuxd daemon, encryption, pairing, the "
                    "session, the file service,\nthe sync lock (taken and given back at once), "
                    "free space, the catalogue and the firmware of every\nphone that is attached. "
                    "Exit code 70: something stands in the way."},
        {.name = "list",
         .run = runList,
         .summary = "Show the ringtones on a phone",
         .promise = "Changes nothing. Shows what the phone's catalogue lists and whose file is "
                    "there; ringtones that\ncame with the phone are not among them."},
        {.name = "get",
         .run = runGet,
         .summary = "Fetch ringtones from a phone as files",
         .promise =
             "Changes nothing on the phone. Files get their ringtones' names, as far as file "
             "systems take them;\nwhat is in them is as it is on the phone. A file that is "
             "there with the same contents stays; nothing\nis written over one with others "
             "unless --force is given.",
         .arguments = {"NAME", "Names of ringtones"},
         .takesAll = true,
         .fetches = true},
        {.name = "play",
         .run = runPlay,
         .summary = "Play a ringtone of a phone, or a file of this computer, until Ctrl-C",
         .promise =
             "Changes nothing. A file that is there is played; anything else is the name of "
             "a ringtone, as it is\nwith --udid in any case; what begins with / ./ or ../ is "
             "a file. Does not say that a phone plays it\n(vesk inspect). Ctrl-C ends with "
             "exit code 0.",
         .arguments = {"NAME", "Name of a ringtone, or a file", /*onlyOne=*/true},
         .plays = true},
        {.name = "add",
         .run = runAdd,
         .summary = "Put songs on a phone as ringtones",
         .promise =
             "Ringtones already there stay. What the phone plays goes as it is, of all else a "
             "ringtone is made\n(vesk prepare); a file that cannot be used does not keep the "
             "others. A ringtone's name is the title\nin the file's tags, or else the file "
             "name; the second of one name becomes \"Name (2)\". Deletes files\nin the "
             "phone's ringtone folder that no catalogue entry lists, as every sync does.",
         .arguments = {"FILE", "Songs, or ringtones"},
         .writes = true,
         .syncs = true,
         .takesName = true,
         .prepares = true,
         .takesSongs = true},
        {.name = "remove",
         .run = runRemove,
         .summary = "Take ringtones off a phone",
         .promise = "Names are those that vesk list --json shows, however accents are written in "
                    "them. Does not\nchange contacts that use the ringtone. --all needs --yes too, "
                    "or --dry-run.",
         .arguments = {"NAME", "Names of ringtones"},
         .writes = true,
         .syncs = true,
         .takesYes = true,
         .takesAll = true},
        {.name = "rename",
         .run = runRename,
         .summary = "Give a ringtone on a phone another name",
         .promise = "Its file and its GUID stay, and no ringtone file is sent. Does not change the "
                    "tags in the file, nor\ncontacts that use the ringtone. Deletes files in the "
                    "phone's ringtone folder that no catalogue entry\nlists, as every sync does.",
         .arguments = {"OLD", "Name of a ringtone", /*onlyOne=*/true},
         .second = {"NEW", "Its name from then on"},
         .writes = true,
         .syncs = true},
        {.name = "replace",
         .run = runReplace,
         .summary = "Put another file in a ringtone's place",
         .promise = "Name and GUID stay; the old file is removed once the new one is there. Songs "
                    "become ringtones as\nwith vesk add. Deletes files in the phone's ringtone "
                    "folder that no catalogue entry lists, as every\nsync does.",
         .arguments = {"NAME", "Name of a ringtone", /*onlyOne=*/true},
         .second = {"FILE", "A song, or a ringtone"},
         .writes = true,
         .syncs = true,
         .prepares = true,
         .takesSongs = true},
        {.name = "sync",
         .run = runSync,
         .summary = "Make a phone hold exactly the songs of a folder as ringtones",
         .promise = "Adds what is missing, replaces what was made of something else, removes all "
                    "other ringtones. Songs\nbecome ringtones as with vesk add. As long as a file "
                    "of the folder cannot be used, nothing is removed.\nDoes not bring a lock that "
                    "another program holds to an end: after about 7 seconds it goes on without.",
         .arguments = {"DIR", "Folder of songs", /*onlyOne=*/true},
         .writes = true,
         .syncs = true,
         .takesYes = true,
         .prepares = true,
         .takesSongs = true,
         .takesFolder = true},
        {.name = "rebuild",
         .run = runRebuild,
         .summary = "Make a phone's catalogue list its ringtone files again",
         .promise = "For a catalogue that is unreadable, empty or lacks files that lie there. They "
                    "get the entries that\nthey had when vesk saw that phone last, or else names "
                    "after their tags. Does not write a ringtone file.\nDeletes from the ringtone "
                    "folder what is no ringtone, as every sync does (vesk undo).",
         .writes = true},
        {.name = "undo",
         .run = runUndo,
         .summary = "Put a phone's ringtones back as they were before the last job",
         .promise = "Byte for byte, also onto a phone that was wiped since; once more: before the "
                    "job before that. Five\njobs are kept (vesk history). Puts nothing over what "
                    "other programs have changed since, unless\n--force is given.",
         .writes = true},
        {.name = "history",
         .run = runHistory,
         .summary = "Show the last five jobs on a phone and what each changed",
         .promise = "Changes nothing. With --udid the phone need not be attached. Knows what was "
                    "done on this computer\nonly."},
        {.name = "backup",
         .run = runBackup,
         .summary = "Copy a phone's ringtones into a folder",
         .promise = "Changes nothing on the phone. Files get their ringtones' names; "
                    "krlvesk-backup.json has the rest,\nwhich vesk restore needs. The folder is "
                    "made; one that is there must be empty.",
         .arguments = {"DIR", "Folder to make", /*onlyOne=*/true}},
        {.name = "restore",
         .run = runRestore,
         .summary = "Put the ringtones of a backup onto a phone, in place of its own",
         .promise = "The phone then has the backup's catalogue and files, byte for byte. Puts "
                    "nothing over ringtones that\nwere not put there by vesk, unless --force is "
                    "given; what was there is kept (vesk undo).",
         .arguments = {"DIR", "Folder that vesk backup has made", /*onlyOne=*/true},
         .writes = true},
        {.name = "inspect",
         .run = runInspect,
         .summary = "Show what audio files are, and whether phones play them as ringtones",
         .promise = "Changes nothing, needs no phone. Goes by what a file says of itself and does "
                    "not listen to it: a\nfile may be damaged further on. Exit code 0: all play, "
                    "52: some do not.",
         .arguments = {"FILE", "Audio files"}},
        {.name = "prepare",
         .run = runPrepare,
         .summary = "Make ringtones of songs",
         .promise = "Needs no phone. Cuts a part out, brings it to a common loudness, fades it and "
                    "writes it as an m4r.\nTakes whatever FFmpeg reads, videos with sound too, but "
                    "nothing encrypted. Writes over nothing unless\n--force is given. Songs are "
                    "made at the same time, as many as there are processors.",
         .arguments = {"FILE", "Songs"},
         .prepares = true},
        {.name = "check",
         .run = runCheck,
         .summary = "Check a catalogue file on this computer for firmware 1.1.1",
         .promise = "Shows the entries in the order in which firmware 1.1.1 walks them, with their "
                    "slots, and the file\nnames in the way. Needs no phone. Does not look at "
                    "ringtone files. Exit code 0: accepted, 50: not\naccepted, 51: not a "
                    "catalogue.",
         .arguments = {"CATALOGUE", "A file such as Ringtones.plist", /*onlyOne=*/true}},
        {.family = "plugin",
         .name = "status",
         .run = runPluginStatus,
         .summary = "Show which version is installed where, and which one is needed",
         .promise = "Changes nothing. Does not ask whether the plug-in is running (vesk plugin "
                    "validate). Exit code 0:\ncurrent, 60: missing or out of date."},
        {.family = "plugin",
         .name = "install",
         .run = runPluginInstall,
         .summary = "Install the plug-in, unless the installed one is current",
         .promise = "Replaces one that is out of date; does not keep it when unpacking fails. "
                    "Needs the device layer,\nas every start-up does, but no phone."},
        {.family = "plugin",
         .name = "validate",
         .run = runPluginValidate,
         .summary = "Ask whether a recent plug-in is running",
         .promise = "Changes nothing. Always takes 6 seconds. Does not tell an old plug-in from "
                    "none. Exit code 0: one\nanswered, 62: none did."},
        {.family = "plugin",
         .name = "run",
         .run = runPluginRun,
         .summary = "Run the installed plug-in's program here, until Ctrl-C",
         .promise = "Answers on the session bus. Does not install the plug-in first."},
    };
    return rows;
}

} // namespace vesk
