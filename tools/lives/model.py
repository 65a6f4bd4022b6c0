"""What must be on a machine after each step of three products' lives.

Written from docs/authoring.md, docs/client-upgrade.md, docs/server-upgrade.md and docs/service-account.md, not from the
fragments. It says of each step which result the engine gives, and of each state all files, folders, values, services, tasks
and products that the packages have added to the machine.

What is Wine's engine and not the packages':

  - It rolls back by deleting what the newer version has installed; it restores nothing of the older version.
  - It rolls back nothing if the script was cancelled.
  - It forgets which products are versions of one another when one of them is removed or rolled back, also by an upgrade. A
    later version then does not find the older one, which stays registered beside it, and a lower one is not refused.
  - It keeps the files of a cancelled installation when another version is removed.

So no step is taken of which this engine says nothing sensible: `steps` lists those that it can answer."""

from lives.packages import hash_of

FAILED, CANCELED, UNKNOWN = 1603, 1602, 1605
# The value of an entry that was there at the beginning.
GONE = "(gone)"
UNINSTALL = "HKLM\\SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\"
SERVICES = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\"
WINDOWS_KEY = "HKLM\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Windows\\"
PROGRAMS = "C:\\Program Files\\"
# Without an account a service has this one. The account of the computer itself has the computer's name.
SYSTEM = "LocalSystem"
COMPUTER = "HXSETUP"


def text(value):
    return f'"{value}"'


class Product:
    """One product. The attributes are its state; None is for what does not exist."""
    name = service = ""
    maker = "Halvorstead\\"
    versions = ("first", "next")

    def __init__(self, numbers, contents):
        self.numbers, self.contents = numbers, contents
        # The versions that the engine knows as installed, and whether it knows of one that it is a version of this product.
        self.registered = []
        self.related = False
        # The version whose files, and whose values in the registry, are there.
        self.files = self.values = None
        # The state of the service, and its account.
        self.running = self.account = None
        # The folder of the maker, which the engine does not delete.
        self.has_maker = False
        self.cancelled = False

    # ---- the steps

    def steps(self):
        """The steps that can be taken now: (kind, version)."""
        if self.cancelled:
            # The older version is not whole, and parts of the newer one are there: only another attempt makes sense.
            return [("install", "next"), ("cancel", "next")]
        if len(self.registered) > 1:
            # The upgrade has not found the older version: it may be removed.
            return [("install", self.registered[-1]), ("repair", self.registered[-1]), ("remove", self.registered[0])]
        if not self.registered:
            found = [("install", version) for version in self.versions] + [("remove", "first"), ("fail", "next")]
            return found + [("cancel", "next")]
        version = self.registered[0]
        found = [("install", version), ("repair", version), ("remove", version)]
        if self.values is None:
            # A failed upgrade has damaged it.
            return [("repair", version), ("remove", version)]
        for other in self.versions:
            higher = self.versions.index(other) > self.versions.index(version)
            # The version "older" of the server refuses nothing.
            if other != version and (higher or (self.related and other != "older")):
                found.append(("install", other))
        if version != "next":
            found += [("fail", "next"), ("cancel", "next")]
        return found

    def meaning(self, kind, version):
        """What a step is now: the kind, but an installation over this product has a name of its own."""
        if kind != "install" or not self.registered:
            return kind
        if version in self.registered:
            return "same version again"
        is_higher = self.versions.index(version) > self.versions.index(self.registered[-1])
        return "upgrade" if is_higher else "lower version"

    def take(self, kind, version):
        """Takes a step. Returns the engine's result."""
        return getattr(self, kind)(version)

    def install(self, version):
        if version in self.registered:
            return 0
        if self.registered and self.versions.index(version) < self.versions.index(self.registered[-1]):
            # A newer version is installed.
            return FAILED
        self.put(version)
        self.start()
        self.cancelled = False
        found = bool(self.registered) and self.related
        self.registered = [version] if found else [*self.registered, version]
        self.related = not found
        return 0

    def repair(self, version):
        self.put(version)
        self.start()
        self.related = True
        return 0

    def remove(self, version):
        if version not in self.registered:
            return UNKNOWN
        self.registered.remove(version)
        self.related = False
        if self.values in (version, None):
            self.take_away()
        return 0

    def fail(self, version):
        self.put(version)
        if self.registered:
            self.roll_back_upgrade()
        else:
            self.roll_back()
        self.related = False
        return FAILED

    def cancel(self, version):
        self.put(version)
        self.cancelled = True
        return CANCELED

    # ---- what the steps do

    def put(self, version):
        """Puts the files and values of a version there, and its service if it has none; stops it."""
        self.has_maker = True
        self.files = self.values = version
        if self.running is None:
            self.account = SYSTEM
        self.running = "stopped"

    def start(self):
        self.running = "running"

    def take_away(self):
        """What a removal does."""
        self.files = self.values = self.running = self.account = None

    def roll_back(self):
        """What a failed first installation leaves."""
        self.take_away()

    def roll_back_upgrade(self):
        """What a failed upgrade leaves of the older version."""
        self.files = self.values = None

    # ---- the machine

    def program(self, name="program", version=None):
        return self.contents[self.name, version or self.files, name]

    def entries(self):
        """What the product has added to the machine: {name: value}. The value of a folder, of a key and of a file in the
        Windows folder is empty; that of another file is its hash."""
        found = {}
        for version in self.registered:
            found.update(self.registration(version))
        if self.running:
            found[f"service {self.service}"] = self.running
            found.update(self.service_values())
        if self.files:
            found.update(self.file_entries())
        if self.values:
            found.update(self.value_entries())
        return found

    def registration(self, version):
        package, number = f"{{{self.name}-{version}}}", self.numbers[version]
        key = UNINSTALL + package + "\\"
        title, publisher, comment, shown = self.uninstall_texts(version)
        return {f"product {package}": number, key: "", key + "DisplayName": text(title), key + "Publisher": text(publisher),
                key + "Comments": text(comment), key + "DisplayVersion": text(shown)}

    def service_key(self, title, program, description=None):
        key = f"{SERVICES}{self.service}\\"
        found = {key: "", key + "DisplayName": text(title), key + "ErrorControl": "1", key + "ImagePath": text(program),
                 key + "ObjectName": text(self.account), key + "PreshutdownTimeout": "180000", key + "Start": "2",
                 key + "Type": "16"}
        if description:
            found[key + "Description"] = text(description)
        return found


class Client(Product):
    """Ostrel. Its library is hooked, and its tasks are registered; the folder of the tasks shows them."""
    name, service = "client", "Ostrel"
    folder = PROGRAMS + "Halvorstead\\Ostrel\\"

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.has_tasks = self.is_hooked = self.is_unhooked = self.is_switched = self.is_scheduled = False

    def uninstall_texts(self, version):
        return "Ostrel", "Halvorstead", "Software metering client agent", f"{self.numbers[version]} (x64)"

    def install(self, version):
        result = super().install(version)
        if result == 0:
            self.connect()
        return result

    def repair(self, version):
        self.connect()
        return super().repair(version)

    def connect(self):
        self.has_tasks = self.is_hooked = self.is_switched = self.is_scheduled = True

    def fail(self, version):
        # It fails after the hook, and after the service of the tasks has been started.
        self.is_switched = self.is_scheduled = True
        return super().fail(version)

    def cancel(self, version):
        result = super().cancel(version)
        self.start()
        return result

    def take_away(self):
        super().take_away()
        self.has_tasks = self.is_hooked = False
        # The list becomes empty, and is deleted.
        self.is_unhooked = True

    def roll_back_upgrade(self):
        super().roll_back_upgrade()
        self.running = self.account = None

    def service_values(self):
        return self.service_key("Ostrel", self.folder + "ostrel.exe", "Software metering agent")

    def file_entries(self):
        found = {self.folder: "", self.folder + "about.txt": self.program("about.txt"),
                 self.folder + "osua.exe": self.program("agent"), "C:\\windows\\system32\\OSTRACK.DLL": ""}
        for name in ("osau.exe", "ostrel.exe", "ostrel32.exe"):
            found[self.folder + name] = self.program()
        return found

    def value_entries(self):
        key = "HKLM\\SOFTWARE\\Halvorstead\\Ostrel\\"
        return {key: "", key + "Folder": text(self.folder), key + "Product": text(f"{{client-{self.values}}}")}

    def entries(self):
        found = super().entries()
        if self.has_tasks:
            found["C:\\windows\\system32\\tasks\\Quillfern\\"] = ""
        if self.is_hooked:
            found[WINDOWS_KEY + "AppInit_DLLs"] = text("OSTRACK.DLL")
        elif self.is_unhooked:
            found[WINDOWS_KEY + "AppInit_DLLs"] = GONE
        if self.is_switched:
            found[WINDOWS_KEY + "LoadAppInit_DLLs"] = "1"
        if self.is_scheduled:
            found["service Schedule"] = "running"
        return found


class Other(Product):
    """Brackwell Gauge, the model with names of its own. Its service has an account, which the engine keeps only as a name."""
    name, service, maker = "other", "Gauge", "Brackwell\\"
    folder = PROGRAMS + "Brackwell\\Gauge\\"

    def __init__(self, *arguments):
        super().__init__(*arguments)
        # The account that an installation has noted.
        self.noted = None

    def uninstall_texts(self, version):
        return "Brackwell Gauge", "Brackwell", "", self.numbers[version]

    def put(self, version):
        is_new = self.running is None
        super().put(version)
        if is_new:
            self.account, self.noted = f"{COMPUTER}\\gauge", "gauge"
        elif self.noted is None:
            self.noted = ""

    def take_away(self):
        super().take_away()
        self.noted = None

    def roll_back_upgrade(self):
        super().roll_back_upgrade()
        self.noted = None

    def service_values(self):
        return self.service_key("Brackwell Gauge", self.folder + "gauge.exe")

    def file_entries(self):
        data = "C:\\ProgramData\\Brackwell\\"
        return {self.folder: "", self.folder + "gauge.exe": self.program(), data: "", data + "Gauge\\": ""}

    def value_entries(self):
        key = "HKLM\\SOFTWARE\\Brackwell\\Gauge\\"
        return {"HKLM\\SOFTWARE\\Brackwell\\": "", key: "", key + "Product": text(f"{{other-{self.values}}}"),
                key + "Account": text(self.noted), key + "AccountDomain": text("." if self.noted else "")}


class Server(Product):
    """Vantor, with its data in its own folder. `tree` is that folder: {name in it: hash, or "" of a folder}; None without it."""
    name, service = "server", "Vantor"
    versions = ("older", "first", "next")
    folder = PROGRAMS + "Halvorstead\\Vantor\\"
    program_names = ("vt.exe", "older readme.txt", "dbcon.cmd", "vantor.inf")
    unconverted, converted = hash_of(b"1\r\n"), hash_of(b"2\r\n")

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self.tree = self.previous = None
        # What was renamed with the time after its name: {name: the trees, the oldest first}.
        self.stamped = {"Vantor (previous)": [], "Vantor": []}
        # The values "ServerFolder" and "vtdf", and the source in the event log.
        self.has_place = self.has_setting = self.has_source = False
        # There is the note of an upgrade that was cancelled. What was in the server's folder then, and was renamed by hand
        # when the older server was put back: the trees, the oldest first.
        self.noted, self.parts = False, []
        # The key above a note that a rollback has deleted.
        self.has_key = False
        self.uses = 0

    def uninstall_texts(self, version):
        comment = "" if version == "older" else "Software metering server"
        return "Vantor Server", "Halvorstead", comment, self.numbers[version]

    def steps(self):
        found = super().steps()
        if self.tree is not None and not self.cancelled:
            found.append(("use", ""))
        if self.noted:
            found.append(("restore", ""))
        return found

    def meaning(self, kind, version):
        return "refused" if self.noted and kind != "restore" else super().meaning(kind, version)

    def take(self, kind, version):
        # After an upgrade that was interrupted every attempt is refused, and changes nothing.
        return FAILED if self.noted and kind != "restore" else super().take(kind, version)

    def restore(self, _):
        """The older server is put back by hand. Returns no result of the engine."""
        if self.tree is not None:
            self.parts.append(self.tree)
        self.tree, self.previous, self.noted = self.previous, None, False

    def cancel(self, version):
        before = self.previous
        result = super().cancel(version)
        self.noted = self.previous is not before
        return result

    def use(self, _):
        """The server writes data. Returns no result of the engine."""
        self.uses += 1
        self.tree.setdefault("Data\\", "")
        self.tree.setdefault("Data\\format.txt", self.unconverted)
        self.tree[f"Data\\counts {self.uses}.dat"] = hash_of(self.counts())

    def counts(self):
        """The content of the file that the server has written last."""
        return f"counts {self.uses}\r\n".encode()

    def data(self):
        return {name: value for name, value in (self.tree or {}).items() if name.startswith("Data\\")}

    def has_data(self):
        return any(not name.endswith("\\") for name in self.data())

    def put(self, version):
        self.has_maker = self.has_place = True
        if version == "older":
            self.files = self.values = version
            self.tree = {**(self.tree or {}), "vt.exe": self.program(), "older readme.txt": self.program("older-readme.txt")}
            return
        if version not in self.registered:
            self.move_aside_and_convert()
        super().put(version)
        self.tree = {**(self.tree or {}), "Data\\": "", "vt.exe": self.program(), "dbcon.cmd": self.program("dbcon.cmd"),
                     "vantor.inf": self.program("vantor.inf")}
        self.has_source = self.has_setting = True

    def move_aside_and_convert(self):
        """An older server is one that the engine finds, or a program with data beside it. Its folder is moved aside, and its
        data are copied back and converted. Data without a server are converted where they are."""
        is_upgrade = (self.registered and self.related) or (self.has_data() and "vt.exe" in self.tree)
        if is_upgrade:
            if self.previous is not None:
                self.stamped["Vantor (previous)"].append(self.previous)
            self.previous, self.tree = self.tree, self.data()
        if self.data().get("Data\\format.txt") == self.unconverted:
            self.tree["Data\\format.txt"] = self.converted

    def start(self):
        if self.values != "older":
            super().start()

    def take_away(self):
        super().take_away()
        self.tree = {name: value for name, value in (self.tree or {}).items() if name not in self.program_names} or None
        self.has_setting = self.has_source = False

    def remove(self, version):
        source = self.has_source
        result = super().remove(version)
        # The version "older" runs no section that takes the source away; a failed installation may have left it.
        self.has_source = source if version == "older" else self.has_source
        # Nor does it have values, with the last of which the engine deletes an empty key.
        self.has_key = self.has_key and (result != 0 or version == "older")
        return result

    def fail(self, version):
        before, service = self.tree, self.running
        is_upgrade, account = bool(self.registered), self.account
        self.put(version)
        is_moved = self.previous is before and before is not None
        copies = {name: value for name, value in self.tree.items() if name not in self.program_names}
        if is_moved:
            # The older folder gets its name again; the copies of its data are renamed.
            self.tree, self.previous = before, None
            if any(not name.endswith("\\") for name in copies):
                # The engine deletes a folder that it has made, if it is empty.
                self.stamped["Vantor"].append(copies)
        else:
            self.tree = copies if before else None
        self.files = self.registered[0] if is_upgrade else None
        self.values, self.related = None, False
        self.running, self.account = (service and "stopped", account)
        # The source stays, because the engine has deleted the file with the section that takes it away.
        self.has_place = self.has_setting = False
        self.has_key = is_moved
        return FAILED

    def service_values(self):
        found = self.service_key("Vantor", self.folder + "vt.exe", "Software metering server")
        if self.has_setting:
            key = f"{SERVICES}Vantor\\Settings\\"
            found.update({key: "", key + "vtdf": text(self.folder + "Data\\")})
        return found

    def file_entries(self):
        return {}

    def value_entries(self):
        if self.values == "older":
            return {}
        key = "HKLM\\SOFTWARE\\Halvorstead\\Vantor\\"
        return {key: "", key + "Product": text(f"{{server-{self.values}}}"), key + "Account": text(""),
                key + "AccountDomain": text("")}

    def entries(self):
        found = super().entries()
        folders = [(self.folder, self.tree), (self.folder[:-1] + " (previous)\\", self.previous)]
        for name, trees in self.stamped.items():
            folders += [(f"{PROGRAMS}Halvorstead\\{name} #{number}\\", tree) for number, tree in enumerate(trees, 1)]
        for folder, tree in folders:
            if tree is not None:
                found[folder] = ""
                found.update({folder + name: value for name, value in tree.items()})
        for number, tree in enumerate(self.parts, 1):
            folder = f"{self.folder[:-1]} ({'part' if number == 1 else f'part {number}'})\\"
            found[folder] = ""
            found.update({folder + name: value for name, value in tree.items()})
        if self.noted:
            key = "HKLM\\SOFTWARE\\Halvorstead\\Vantor\\"
            found.update({key: "", key + "Upgrade\\": "", key + "Upgrade\\Server": text(self.folder),
                          key + "Upgrade\\Aside": text(self.folder[:-1] + " (previous)\\")})
        if self.has_key:
            found["HKLM\\SOFTWARE\\Halvorstead\\Vantor\\"] = ""
        if self.has_place:
            key = "HKLM\\SOFTWARE\\Halvorstead\\Vantor\\"
            found.update({key: "", key + "ServerFolder": text(self.folder)})
        if self.has_source:
            key = f"{SERVICES}Eventlog\\Application\\Vantor\\"
            found.update({key: "", key + "EventMessageFile": text(self.folder + "vt.exe"), key + "TypesSupported": "7"})
        return found


class Machine:
    """All products on one machine."""

    def __init__(self, numbers, contents):
        self.products = {kind.name: kind(numbers, contents) for kind in (Client, Server, Other)}

    def steps(self):
        """The steps that can be taken now: (product, kind, version)."""
        return [(name, *step) for name, product in self.products.items() for step in product.steps()]

    def take(self, product, kind, version):
        """Takes a step. Returns the engine's result; None if the step is not the engine's."""
        return self.products[product].take(kind, version)

    def meanings(self, steps):
        """Takes steps. Returns what each of them was: (product, meaning)."""
        found = []
        for product, kind, version in steps:
            found.append((product, self.products[product].meaning(kind, version)))
            self.take(product, kind, version)
        return found

    def entries(self):
        """What there is besides the machine at the beginning: {name: value}."""
        found = {}
        for product in self.products.values():
            found.update(product.entries())
            if product.has_maker:
                found[PROGRAMS + product.maker] = ""
        if any(name.startswith("HKLM\\SOFTWARE\\Halvorstead\\") for name in found):
            found["HKLM\\SOFTWARE\\Halvorstead\\"] = ""
        return found
