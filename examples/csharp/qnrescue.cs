// Runs qnrescue with the arguments that it is given, and prints the type and the value of each
// document as it comes. `qnrescue` has to be in the PATH. Tried with Mono 6.8 on Debian, not yet with
// .NET on Windows.
//
//     mcs -r:System.Xml.Linq qnrescue.cs && mono qnrescue.exe --list-devices
//
// With .NET 6 or later it is the Program.cs of a project that `dotnet new console` makes:
//
//     dotnet run -- --list-devices
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.IO;
using System.Linq;
using System.Text;
using System.Text.RegularExpressions;
using System.Xml;
using System.Xml.Linq;

static class Program
{
    // Without this, a reader refuses each document for its DOCTYPE.
    static readonly XmlReaderSettings Settings =
        new XmlReaderSettings { DtdProcessing = DtdProcessing.Ignore };

    // Returns the root dictionary of each document as it comes.
    static IEnumerable<XElement> Documents(TextReader output)
    {
        var text = new StringBuilder();
        for (string line; (line = output.ReadLine()) != null;)
        {
            if (line.StartsWith("<?xml", StringComparison.Ordinal))
            {
                text.Clear(); // the rest of a document that ended early
            }
            // A text of a device may hold characters that XML does not allow.
            text.Append(Regex.Replace(line, "[\x00-\x08\x0B\x0C\x0E-\x1F\uFFFE\uFFFF]", ""));
            text.Append('\n');
            if (line == "</plist>")
            {
                using (var reader = XmlReader.Create(new StringReader(text.ToString()), Settings))
                {
                    yield return XElement.Load(reader).Element("dict");
                }
            }
        }
    }

    // Returns the value of a key in a <dict>.
    static XElement Entry(XElement dictionary, string key) =>
        dictionary.Elements("key").First(each => each.Value == key).ElementsAfterSelf().First();

    static void Print(XElement document)
    {
        var value = Entry(document, "Value");
        var texts = value.Name == "dict"
            ? value.Elements("key").Select(key => key.Value + "=" + Entry(value, key.Value).Value)
            : value.Elements().Select(each => each.Value);
        Console.WriteLine(Entry(document, "Type").Value + ": " + string.Join(", ", texts));
    }

    // Returns the argument as Windows programs expect it in a command line.
    static string Quoted(string argument) =>
        "\"" + Regex.Replace(argument, "(\\\\*)(\"|$)",
            match => match.Groups[1].Value + match.Groups[1].Value
                + (match.Groups[2].Value == "" ? "" : "\\\"")) + "\"";

    static int Main(string[] arguments)
    {
        var start = new ProcessStartInfo("qnrescue")
        {
            Arguments = string.Join(" ", arguments.Select(Quoted)), // Mono ignores an ArgumentList
            RedirectStandardOutput = true,
            StandardOutputEncoding = new UTF8Encoding(false),
            UseShellExecute = false,
        };
        Console.OutputEncoding = new UTF8Encoding(false);
        using (var tool = Process.Start(start))
        {
            foreach (var document in Documents(tool.StandardOutput))
            {
                Print(document);
            }
            tool.WaitForExit();
            return tool.ExitCode;
        }
    }
}
