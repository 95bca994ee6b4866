"""What the tool prints when a platform function fails: one table, read by fault_matrix.py.

FAILURES says how each function fails. COMMANDS are runs of the tool; `calls` lists, in the order of
the calls, every call of such a function that the run makes, with what its failure changes.
"""

import copy
import functools
import operator
import plistlib
from dataclasses import dataclass, field

from harness import COMPLETE, DESCRIPTIONS, ECID, device, report

# --- The functions

# The scenario's `Result` of each failure; None: null, false or 0, whatever the function returns.
ERROR = 2009  # of the restore interface
ERROR_TEXT = "USB device request error returned from request to iBoot"
FAILURES = {
    "AMDeviceNotificationSubscribe": [1],
    "AMDeviceNotificationUnsubscribe": [1],
    "AMRecoveryModeDeviceReboot": [ERROR],
    "AMRecoveryModeDeviceSetAutoBoot": [ERROR],
    "AMRestorableDeviceCopyProductString": [None],
    "AMRestorableDeviceCopyRecoveryModeDevice": [None],
    "AMRestorableDeviceCopySerialNumber": [None],
    "AMRestorableDeviceGetBoardID": [None],
    "AMRestorableDeviceGetChipID": [None],
    "AMRestorableDeviceGetECID": [None],
    "AMRestorableDeviceGetFusingInfo": [None],
    "AMRestorableDeviceGetLocationID": [None],
    "AMRestorableDeviceGetProductID": [None],
    "AMRestorableDeviceGetProductType": [None],
    "AMRestorableDeviceGetState": [None],
    "AMRestorableDeviceRegisterForNotifications": [None, 5, 100],  # without and with an error
    "AMRestorableDeviceRestore": [None],  # does not begin
    "AMRestorableDeviceUnregisterForNotifications": [1],
    "AMRestoreCreateDefaultOptions": [None],
    "AMRestoreEnableFileLogging": [ERROR],
    "CFArrayCreateMutable": [None],
    "CFArrayGetValueAtIndex": [None],
    "CFCopyDescription": [None],
    "CFDataCreateWithBytesNoCopy": [None],
    "CFDictionaryCreateMutable": [None],
    "CFDictionaryCreateMutableCopy": [None],
    "CFDictionaryGetValue": [None],
    "CFErrorCopyDescription": [None],
    "CFErrorCopyFailureReason": [None],
    "CFErrorCreate": [None],
    "CFErrorGetDomain": [None],
    "CFNumberCreate": [None],
    "CFNumberGetValue": [None],
    "CFPropertyListCreateData": [None, 3851],  # without and with an error
    "CFPropertyListCreateWithData": [None],
    "CFStringCreateWithBytes": [None],
    "CFStringGetCString": [None],
    "CFStringGetMaximumSizeForEncoding": [-1],  # not found: too long to be counted
}

# Functions that cannot fail where their objects are there.
INFALLIBLE = {
    "CFArrayAppendValue", "CFArrayApplyFunction", "CFArrayGetCount", "CFArrayGetTypeID",
    "CFBooleanGetTypeID", "CFDataGetBytePtr", "CFDataGetLength", "CFDataGetTypeID",
    "CFDateGetTypeID", "CFDictionaryApplyFunction", "CFDictionaryGetCount",
    "CFDictionaryGetKeysAndValues", "CFDictionaryGetTypeID", "CFDictionarySetValue",
    "CFErrorGetCode", "CFErrorGetTypeID", "CFGetTypeID", "CFNumberGetTypeID", "CFRelease",
    "CFRetain", "CFSetApplyFunction", "CFSetGetTypeID", "CFStringFind", "CFStringGetLength",
    "CFStringGetTypeID", "__CFStringMakeConstantString",
}

# --- What a run is expected to do

EMPTY_LINE = "an empty line"


@dataclass
class Expected:
    status: int
    documents: list  # of [type, value]; None where one is lost, EMPTY_LINE where that is left of it
    lines: list = field(default_factory=list)  # debug lines there must be, as regular expressions
    waits: bool = False  # until a timeout that no test sees


class Text:
    """Equals any text with this in it."""

    def __init__(self, part):
        self.part = part

    def __eq__(self, other):
        return isinstance(other, str) and self.part in other

    def __repr__(self):
        return f"...{self.part}..."


def tool_error(code, reason):
    return ["InternalError", {"Domain": "qnrescue", "Code": code,
                              "Description": DESCRIPTIONS[code], "FailureReason": reason}]


def foreign_error(code):
    return ["InternalError", {"Domain": "simulator", "Code": code,
                              "Description": Text(f"(simulator error {code}.)")}]


# --- What a failure changes


def same(expected):
    pass


def says(line):
    return lambda expected: expected.lines.append(line)


def loses(number, line):
    """The document is missing, and its debug line says so."""
    def change(expected):
        expected.documents[number] = None
        expected.lines.append(line)
    return change


def empties(number):
    """The document's text could not be taken out, which leaves the line feed after it."""
    def change(expected):
        expected.documents[number] = EMPTY_LINE
    return change


def holder(expected, number, path):
    return functools.reduce(operator.getitem, path, expected.documents[number][1])


def holds(number, key, value):
    """A value of the document becomes this one."""
    def change(expected):
        holder(expected, number, ())[key] = value
    return change


def lacks(number, *path):
    """The document has nothing at this path."""
    def change(expected):
        *parents, key = path
        del holder(expected, number, parents)[key]
    return change


def ends(code, reason):
    """The run prints this error only, and ends with its code."""
    def change(expected):
        expected.documents[:] = [tool_error(code, reason)]
        expected.status = code
    return change


def all_of(*changes):
    def change(expected):
        for each in changes:
            each(expected)
    return change


def prints(*document):
    """The documents are this one only."""
    def change(expected):
        expected.documents[:] = [list(document)]
    return change


def lists(*ecids):
    return prints("DeviceList", list(ecids))


def succeeds(expected):
    expected.status = 0


def waits(expected):
    """No document, and no end."""
    expected.documents.clear()
    expected.waits = True


# --- The calls of the tool's operations


def call(function, change=same):
    """One call; the change is one for all failures of the function, or a dictionary by result."""
    by_result = change if isinstance(change, dict) else dict.fromkeys(FAILURES[function], change)
    assert list(by_result) == FAILURES[function], function
    return function, by_result


def text_of(change):
    """A string that is turned into UTF-8."""
    return [call("CFStringGetMaximumSizeForEncoding", change), call("CFStringGetCString", change)]


UNPRINTED = "print_value: {} failed - {}".format


def printing(number):
    return [
        call("CFDictionaryCreateMutable",
             loses(number, UNPRINTED("CFPropertyListCreateData", ".+"))),
        call("CFPropertyListCreateData", {
            None: loses(number, UNPRINTED("CFPropertyListCreateData", "unknown")),
            3851: loses(number, UNPRINTED("CFPropertyListCreateData",
                                          r"Error Domain=simulator Code=3851 .*"))}),
        call("CFStringCreateWithBytes",
             loses(number, UNPRINTED("CFStringCreateWithBytes", "unknown"))),
        *text_of(empties(number)),
    ]


def error_dictionary(unmade, number, *path):
    """The error's dictionary, which is at this path in the document."""
    return [
        call("CFDictionaryCreateMutable", unmade),
        call("CFErrorGetDomain", lacks(number, *path, "Domain")),
        call("CFNumberCreate", lacks(number, *path, "Code")),
        call("CFErrorCopyDescription", lacks(number, *path, "Description")),
        call("CFErrorCopyFailureReason", lacks(number, *path, "FailureReason")),
    ]


def printing_error(number):
    return [
        *error_dictionary(loses(number, "print_formatted_error: could not create error dict"),
                          number),
        *printing(number),
    ]


def no_error(number):
    """There is no error: none is printed, and the code of none is 0."""
    def change(expected):
        loses(number, "print_formatted_error: invalid argument")(expected)
        expected.status = 0
    return change


def making_error(number, code, unmade=None):
    return [
        call("CFDictionaryCreateMutable",
             all_of(holds(number, "Description", Text(f"(qnrescue error {code}.)")),
                    lacks(number, "FailureReason"))),
        call("CFStringCreateWithBytes", lacks(number, "FailureReason")),
        call("CFErrorCreate", unmade or no_error(number)),
    ]


def failing(code, number=0, unmade=None):
    """A tool error is made and printed as this document."""
    return [*making_error(number, code, unmade), *printing_error(number)]


STARTING = [call("AMDeviceNotificationSubscribe"), call("AMDeviceNotificationUnsubscribe")]
ENDING = [call("AMRestorableDeviceUnregisterForNotifications")]


def refused(code, status, printed=2):
    """Registration gives an error, which is printed where it comes and where the run ends."""
    def change(expected):
        expected.documents[:] = [foreign_error(code)] * printed
        expected.status = status
    return change


def registering(unseen, printed=2):
    """Registration; the change is that no device is ever seen."""
    return [call("AMRestorableDeviceRegisterForNotifications",
                 {None: unseen, 5: refused(5, 5, printed), 100: refused(100, 1, printed)})]


def arriving(unseen):
    """A notification; the change is that this device is not seen."""
    ignored = says(r"deviceNotificationCallback: Ignoring AMRestorableDevice with invalid ECID "
                   r"\(0x[0-9a-f]+ type connected\)")
    return [call("AMRestorableDeviceGetState"),
            call("AMRestorableDeviceGetECID", all_of(ignored, unseen))]


NOT_FOUND = ends(4, f"Failed to find device with ecid {ECID} after 1 seconds")
DEVICE_FOUND = [*STARTING, *registering(NOT_FOUND), *arriving(NOT_FOUND)]

# --- Restores

ERROR_IN_REPORT = {"Domain": "D", "Code": 7, "Description": "what", "FailureReason": "why"}
RESTORING = report(5, 10)
RESTORING["Status"].update(Images=["kernel", "root"], Error={"$type": "error", **ERROR_IN_REPORT})
RESTORING_DOCUMENT = ["RestoreStatus", {
    **RESTORING["Status"], "Error": ERROR_IN_REPORT,
    "QN_OperationName": "Sending ramdisk to device"}]
BOOTING_DOCUMENT = ["RestoreStatus", {**report(9, 20)["Status"], "QN_OperationName": "Booting"}]
COMPLETE_DOCUMENT = ["RestoreStatus", COMPLETE["Status"]]

TIMED_OUT = tool_error(7, "Aborting, restore did not complete in 1 seconds")


def times_out(after):
    def change(expected):
        expected.documents[after:] = [TIMED_OUT]
    return change


def reporting(number, operation, line, unread, contents=()):
    """A report, which becomes the document; the change is that it is not understood."""
    unread = all_of(says("restoreCallback: Ignoring invalid statusDict"), unread)
    unconverted = loses(number, "restoreCallback: Could not convert statusDict")
    return [
        call("CFDictionaryGetValue", unread), *text_of(unread),  # Status
        call("CFDictionaryGetValue", unread), call("CFNumberGetValue", unread),  # Operation
        call("CFDictionaryGetValue", unread), call("CFNumberGetValue", unread),  # Progress
        *text_of(says(f"restoreCallback: {line.format(f'Unknown operation {operation}')}")),
        call("CFDictionaryCreateMutable", unconverted),
        *contents,
        call("CFDictionaryCreateMutableCopy", unconverted),
        *printing(number),
    ]


def restoring(number):
    def unread(expected):
        expected.documents[number] = None
    return reporting(number, 5, "status Restoring, operation {}, progress 10", unread, contents=[
        call("CFArrayCreateMutable", lacks(number, "Images")),
        call("CFArrayGetValueAtIndex", holds(number, "Images", ["root"])),
        call("CFArrayGetValueAtIndex", holds(number, "Images", ["kernel"])),
        *error_dictionary(lacks(number, "Error"), number, "Error"),
    ])


def completing(number, unread):
    return reporting(number, 0, "status Successful, operation {}, progress 100", unread)


def restore_options():
    unmade = ends(1, "CFStringCreateWithBytes failed")
    return [call("AMRestoreCreateDefaultOptions", ends(1, "AMRestoreCreateDefaultOptions failed")),
            call("CFStringCreateWithBytes", unmade), call("CFStringCreateWithBytes", unmade)]


def unreadable(name, why):
    return ends(8, f"Cannot open file '{name}' - {why}")


OPTIONS_FILE = [
    call("CFDataCreateWithBytesNoCopy", unreadable("options.plist", "Bad alloc")),
    call("CFPropertyListCreateWithData", unreadable("options.plist", "Invalid format")),
]


def beginning(unreported):
    return [call("AMRestorableDeviceRestore", unreported)]


# --- The properties of a device

NUMBERS = {"ProductID": 0x1281, "BoardID": 12, "ChipID": 0x8110, "ProductType": 0x0E04,
           "FusingInfo": 3, "LocationID": 0x14100000}
TEXTS = {"SerialNumber": "F4GSM1QN0D8X", "ProductString": "Apple Mobile Device (Recovery Mode)"}


def reading_device():
    for key in NUMBERS:
        yield call(f"AMRestorableDeviceGet{key}", holds(0, key, 0))
    for key in TEXTS:
        yield call(f"AMRestorableDeviceCopy{key}", lacks(0, key))
        yield from text_of(lacks(0, key))
    yield call("CFDictionaryCreateMutable", loses(0, "print_value: invalid argument"))
    for key in ("ECID", *TEXTS):
        yield call("CFStringCreateWithBytes", lacks(0, key))
    for key in NUMBERS:
        yield call("CFNumberCreate", lacks(0, key))


# --- Recovery mode

def recovery_device(name):
    return [
        call("AMRestorableDeviceGetState",
             ends(5, f"Device in state Unknown not valid for {name}")),
        call("AMRestorableDeviceCopyRecoveryModeDevice",
             ends(5, "Recovery device not available for this Restorable device")),
    ]


def command_refused(name):
    return ends(6, f"{name} command failed ({ERROR_TEXT})")


AUTO_BOOT = [call("AMRecoveryModeDeviceSetAutoBoot", command_refused("SetAutoBoot"))]
REBOOT = [call("AMRecoveryModeDeviceReboot", command_refused("Reboot"))]

# --- The two tables of texts, in the order in which --debug-dump prints them

DUMPED_CODES = 1000 + 10000


def dumped_without_text(number):
    code = number if number < 1000 else number - 1000
    return says(rf'case {code}: return copyString\(CFSTR\(""\)\);')


# --- The runs


@dataclass
class Command:
    name: str
    arguments: list
    documents: list
    calls: list
    status: int = 0
    scenario: dict = field(default_factory=dict)
    files: dict = field(default_factory=dict)
    debug: bool = True
    waits_without: tuple = ()  # functions; where all their calls fail, the run goes on waiting
    only: tuple = None  # where there are very many calls, the numbers of those that fail in turn

    def expected(self):
        return Expected(self.status, copy.deepcopy(self.documents))


def scripted(**properties):
    return {"Devices": [device(**properties)], "TimeScale": 0}


def restored(*reports):
    return scripted(RestoreReports=list(reports))


def failed(name, arguments, code, reason, calls=(), unmade=None, **more):
    """A run that ends with a tool error after these calls."""
    return Command(name, arguments, [tool_error(code, reason)],
                   [*calls, *failing(code, unmade=unmade)], code, **more)


OTHER = "00000000000000A2"
AT = ["--ecid", ECID, "--detect-timeout", "1"]
RESTORE = ["--restore", "x.ipsw", *AT, "--restore-timeout", "1"]
RESTORE_BEGUN = [*STARTING, *restore_options(), *registering(NOT_FOUND), *arriving(NOT_FOUND)]
OPTIONS_FILE_OF = {"options.plist": plistlib.dumps({"RestoreBundlePath": "x.ipsw"})}
NO_COMMAND = ends(3, "Invalid command option")
LOGGING_FAILED = r"device_notifier_state: AMRestoreEnableFileLogging failed \({}: {}\)".format

SUCCESSES = [
    Command("help", ["--help"], [], []),
    Command(
        "debug-dump", ["--debug-dump"], [],
        [each for number in range(DUMPED_CODES) for each in text_of(dumped_without_text(number))],
        only=(1, 2, 999, 1000, 1001, 5000, DUMPED_CODES)),
    Command(
        "list-devices", ["--list-devices", "--detect-timeout", "1"],
        [["DeviceList", [OTHER, ECID]]],
        [*STARTING, *registering(lists()), *arriving(lists(OTHER)), *arriving(lists(ECID)),
         call("CFArrayCreateMutable", loses(0, "print_value: invalid argument")),
         call("CFStringCreateWithBytes", lists(ECID)),
         call("CFStringCreateWithBytes", lists(OTHER)),
         *printing(0), *ENDING],
        scenario={"Devices": [device(), device(OTHER)], "TimeScale": 0}),
    Command(
        "list-devices, unprintable", ["--list-devices", "--detect-timeout", "0"], [],
        [*STARTING, *registering(same, printed=1),
         call("CFArrayCreateMutable", says("print_value: invalid argument")),
         call("CFDictionaryCreateMutable"), call("CFPropertyListCreateData"),
         call("CFCopyDescription", says(UNPRINTED("CFPropertyListCreateData", r"\(null\)"))),
         *text_of(says(UNPRINTED("CFPropertyListCreateData", ""))), *ENDING],
        scenario={"Faults": [{"Function": "CFPropertyListCreateData", "Call": 1,
                              "Result": 3851}]}),
    Command(
        "device-info", ["--device-info", *AT],
        [["DeviceInfo", {"ECID": ECID, **NUMBERS, **TEXTS}]],
        [*DEVICE_FOUND, *reading_device(), *printing(0), *ENDING],
        scenario=scripted(**NUMBERS, **TEXTS)),
    Command(
        "exit-recovery", ["--exit-recovery", *AT], [["CommandSuccess", True]],
        [*DEVICE_FOUND, *recovery_device("exit-recovery"), *AUTO_BOOT, *REBOOT, *printing(0),
         *ENDING],
        scenario={**scripted(), "TimeScale": 1000}),  # the device leaves long after the run's end
    Command(
        "no-exit-recovery", ["--no-exit-recovery", *AT], [["CommandSuccess", True]],
        [*DEVICE_FOUND, *recovery_device("no-exit-recovery"), *AUTO_BOOT, *printing(0), *ENDING],
        scenario=scripted()),
    Command(
        "amr-logfile", ["--no-exit-recovery", *AT, "--amr-logfile", "log.txt"],
        [["CommandSuccess", True]],
        [*STARTING,
         call("AMRestoreEnableFileLogging", says(LOGGING_FAILED(ERROR, f".*{ERROR_TEXT}.*"))),
         *registering(NOT_FOUND), *arriving(NOT_FOUND), *recovery_device("no-exit-recovery"),
         *AUTO_BOOT, *printing(0), *ENDING],
        scenario=scripted()),
    Command(
        "amr-logfile, refused", ["--no-exit-recovery", *AT, "--amr-logfile", "log.txt"],
        [["CommandSuccess", True]],
        [*STARTING,
         call("AMRestoreEnableFileLogging", says(LOGGING_FAILED(ERROR, f".*{ERROR_TEXT}.*"))),
         call("CFCopyDescription", says(LOGGING_FAILED(14, r"\(null\)"))),
         *text_of(says(LOGGING_FAILED(14, ""))),
         *registering(NOT_FOUND), *arriving(NOT_FOUND), *recovery_device("no-exit-recovery"),
         *AUTO_BOOT, *printing(0), *ENDING],
        scenario={**scripted(), "Failures": {"EnableFileLogging": 14}}),
    Command(
        "restore", RESTORE, [RESTORING_DOCUMENT, COMPLETE_DOCUMENT],
        [*RESTORE_BEGUN, *beginning(times_out(0)), *restoring(0), *completing(1, times_out(1)),
         *ENDING],
        scenario=restored(RESTORING, COMPLETE)),
    Command(
        "restore, erase", [*RESTORE, "--erase"], [COMPLETE_DOCUMENT],
        [*RESTORE_BEGUN, *beginning(times_out(0)), *completing(0, times_out(0)), *ENDING],
        scenario=restored(COMPLETE)),
    Command(
        "restore, timeout", RESTORE, [RESTORING_DOCUMENT, TIMED_OUT],
        [*RESTORE_BEGUN, *beginning(times_out(0)), *restoring(0),
         *failing(7, 1), *ENDING],
        scenario=restored(RESTORING)),
    Command(
        "enter-restore-mode", [*RESTORE, "--enter-restore-mode"], [BOOTING_DOCUMENT],
        [*RESTORE_BEGUN, *beginning(times_out(0)),
         *reporting(0, 9, "status Restoring, operation {}, progress 20", times_out(0)), *ENDING],
        scenario=restored(report(9, 20))),
    Command(
        "restore-plist", ["--restore-plist", "options.plist", *AT], [COMPLETE_DOCUMENT],
        [*STARTING, *OPTIONS_FILE, *registering(NOT_FOUND), *arriving(NOT_FOUND),
         *beginning(waits), *completing(0, same), *ENDING],
        # A report that is not understood comes once more: nothing else ends the run in time.
        scenario={**restored(COMPLETE, {**COMPLETE, "After": 1.5}), "TimeScale": 1},
        files=OPTIONS_FILE_OF,
        waits_without=("AMRestorableDeviceRestore", "CFDictionaryGetValue", "CFNumberGetValue",
                       "CFStringGetCString", "CFStringGetMaximumSizeForEncoding")),
]

FAILURES_OF_COMMANDS = [
    failed("unknown option", ["--frobnicate"], 3, Text("--frobnicate"), unmade=NO_COMMAND,
           debug=False),
    failed("option twice", ["--ecid", "a", "--ecid", "b"], 3,
           "Option '--ecid' may only be specified once", unmade=NO_COMMAND, debug=False),
    failed("no command", [], 3, "Invalid command option", STARTING),
    failed("bad ecid", ["--list-devices", "--ecid", "zz"], 2, "Invalid ecid", STARTING),
    failed("no device", ["--device-info", *AT], 4,
           f"Failed to find device with ecid {ECID} after 1 seconds",
           [*STARTING, *registering(same), *arriving(same)],
           scenario={"Devices": [device(OTHER)], "TimeScale": 0}),
    failed("wrong state", ["--exit-recovery", *AT], 5,
           "Device in state DFU not valid for exit-recovery",
           [*DEVICE_FOUND, *recovery_device("exit-recovery")[:1]], scenario=scripted(State="DFU")),
    failed("no recovery device", ["--exit-recovery", *AT], 5,
           "Recovery device not available for this Restorable device",
           [*DEVICE_FOUND, *recovery_device("exit-recovery")],
           scenario=scripted(RecoveryModeDevice=False)),
    failed("auto-boot refused", ["--no-exit-recovery", *AT], 6,
           f"SetAutoBoot command failed ({ERROR_TEXT})",
           [*DEVICE_FOUND, *recovery_device("no-exit-recovery"), *AUTO_BOOT,
            *text_of(ends(6, f"SetAutoBoot command failed (Unknown error {ERROR})"))],
           scenario=scripted(SetAutoBootError=ERROR)),
    failed("reboot refused", ["--exit-recovery", *AT], 6, f"Reboot command failed ({ERROR_TEXT})",
           [*DEVICE_FOUND, *recovery_device("exit-recovery"), *AUTO_BOOT, *REBOOT,
            *text_of(ends(6, f"Reboot command failed (Unknown error {ERROR})"))],
           scenario=scripted(RebootError=ERROR)),
    failed("no default options", RESTORE, 1, "AMRestoreCreateDefaultOptions failed",
           [*STARTING, *restore_options()[:1]],
           scenario={"Failures": {"CreateDefaultOptions": True}}),
    failed("options are an array", ["--restore-plist", "options.plist", *AT], 8,
           "Cannot open file 'options.plist' - Invalid format", [*STARTING, *OPTIONS_FILE],
           files={"options.plist": plistlib.dumps([])}),
    Command(
        "registration refused", ["--list-devices", "--detect-timeout", "0"],
        [["InternalError", dict(ERROR_IN_REPORT)], ["InternalError", dict(ERROR_IN_REPORT)]],
        [*STARTING, *registering(all_of(succeeds, lists())),
         *printing_error(0), *printing_error(1)],
        status=7, scenario={"Failures": {"RegisterForNotifications": ERROR_IN_REPORT}}),
]

COMMANDS = SUCCESSES + FAILURES_OF_COMMANDS
