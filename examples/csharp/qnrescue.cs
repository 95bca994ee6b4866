// Runs qnrescue.exe with the arguments that it is given, and prints the type and the value of each
// document as it comes. Needs .NET 6 or later. It has not been tried yet.
//
// As the Program.cs of a project that `dotnet new console` makes:
//
//     dotnet run -- --list-devices
using System;
using System.Collections.Generic;
using System.Diagnostics;
using System.Linq;
using System.Text;
using System.Xml;
using System.Xml.Linq;

static class Program
{
    // Returns the value of a key in a <dict>.
    static XElement Entry(XElement dictionary, string key) =>
        dictionary.Elements("key").First(each => each.Value == key).ElementsAfterSelf().First();

    // Returns the root dictionary of each document as it comes. Sets the exit status to the tool's.
    static IEnumerable<XElement> RunTool(IEnumerable<string> arguments)
    {
        var start = new ProcessStartInfo("qnrescue.exe")
        {
            RedirectStandardOutput = true,
            StandardOutputEncoding = Encoding.UTF8,
            UseShellExecute = false,
        };
        foreach (var argument in arguments)
        {
            start.ArgumentList.Add(argument);
        }
        using var tool = Process.Start(start)!;
        var text = new StringBuilder();
        while (tool.StandardOutput.ReadLine() is { } line)
        {
            if (line.StartsWith("<?xml", StringComparison.Ordinal))
            {
                text.Clear(); // the rest of a document that ended early
            }
            else if (!line.StartsWith("<!DOCTYPE", StringComparison.Ordinal))
            {
                text.Append(line).Append('\n');
            }
            if (line == "</plist>")
            {
                XElement? root = null;
                try
                {
                    root = XElement.Parse(text.ToString()).Element("dict");
                }
                catch (XmlException)
                {
                    // A text of a device may hold characters that XML does not allow.
                }
                if (root != null)
                {
                    yield return root;
                }
            }
        }
        tool.WaitForExit();
        Environment.ExitCode = tool.ExitCode;
    }

    static void Main(string[] arguments)
    {
        foreach (var document in RunTool(arguments))
        {
            var value = Entry(document, "Value");
            if (value.Name != "dict")
            {
                var elements = value.Elements().Select(each => each.Value);
                Console.WriteLine($"{Entry(document, "Type").Value}: {string.Join(" ", elements)}");
                continue;
            }
            var entries = value.Elements("key")
                .Select(key => $"{key.Value}={Entry(value, key.Value).Value}");
            Console.WriteLine($"{Entry(document, "Type").Value}: {string.Join(", ", entries)}");
        }
    }
}
