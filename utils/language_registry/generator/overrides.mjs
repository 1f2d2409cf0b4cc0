// Where the registry departs from the linguist data, and why. Languages are given by their
// linguist names. The generator rejects rows that name an unknown language, and rows
// whose removal would plainly change nothing, so that none outlives a refresh of the data.

// The languages that win a contested extension when the first-extension rule of generate.mjs does
// not settle it, most widely used first.
export const popularity = [
  'JavaScript', 'Python', 'TypeScript', 'Java', 'C#', 'C++', 'C', 'PHP', 'Shell', 'Go', 'Ruby',
  'Rust', 'Kotlin', 'Swift', 'Scala', 'Perl', 'Lua', 'R', 'Haskell', 'Common Lisp', 'Scheme',
  'Assembly', 'SQL', 'HTML', 'XML', 'JSON', 'YAML', 'INI', 'TeX', 'Markdown', 'Text',
];

// [language, the language it is part of, reason]
export const merges = [
  ['Cairo Zero', 'Cairo', 'an older version of the same language, with the same extension'],
  ['Fortran Free Form', 'Fortran', 'a source form, not a language'],
  ['Gradle Kotlin DSL', 'Kotlin', 'the file is a Kotlin script'],
  ['Lean 4', 'Lean', 'a version of the same language, with the same extension'],
  ['M4Sugar', 'M4', 'a macro library for M4'],
  ['Roff Manpage', 'Roff', 'a man page is roff with the man macros'],
  ['Unix Assembly', 'Assembly', 'an assembler dialect; ".s" and ".asm" sit side by side'],
  ['XML Property List', 'XML', 'the file is XML'],
];

// [language, reason]
export const droppedLanguages = [
  ['Pickle', 'a binary format'],
  ['Raw token data', 'its ".raw" is nearly always binary image or audio data'],
  ['STL', 'usually a binary mesh'],
  ['Wavefront Object', 'its ".obj" is also the extension of compiled object files'],
];

// [language, registry name, reason]. A language without a row gets its linguist name in lower case
// with hyphens or, when that is over 15 characters, its first alias that is not.
const tooLong = 'the name is over 15 characters and no alias is shorter';
const clearer = 'the name it goes by';
const unwritable = 'its name has characters that a registry name may not have';
export const names = [
  ['2-Dimensional Array', '2da', tooLong],
  ['Adobe Font Metrics', 'afm', clearer],
  ['Ant Build System', 'ant', tooLong],
  ['Answer Set Programming', 'answer-set', tooLong],
  ['Apollo Guidance Computer', 'agc', tooLong],
  ['B (Formal Method)', 'b-method', unwritable],
  ['Cap\'n Proto', 'capnproto', unwritable],
  ['Cloud Firestore Security Rules', 'firestore-rules', tooLong],
  ['Component Pascal', 'componentpascal', tooLong],
  ['Edje Data Collection', 'edje', tooLong],
  ['F*', 'fstar', unwritable],
  ['Game Maker Language', 'gml', tooLong],
  ['Gemfile.lock', 'gemfile-lock', clearer],
  ['Git Revision List', 'git-blame-revs', clearer],
  ['Glyph Bitmap Distribution Format', 'bdf', tooLong],
  ['Graphviz (DOT)', 'dot', unwritable],
  ['HTML+EEX', 'eex', clearer],
  ['HTML+ERB', 'erb', clearer],
  ['HTML+PHP', 'phtml', clearer],
  ['HTML+Razor', 'razor', clearer],
  ['Jupyter Notebook', 'jupyter', clearer],
  ['KiCad Legacy Layout', 'kicad-legacy', tooLong],
  ['Microsoft Visual Studio Solution', 'vs-solution', tooLong],
  ['Module Management System', 'mms', tooLong],
  ['OMNeT++ NED', 'omnetpp-ned', unwritable],
  ['Open Policy Agent', 'rego', clearer],
  ['OpenStep Property List', 'openstep-plist', tooLong],
  ['OpenType Feature File', 'opentype-fea', clearer],
  ['Parrot Internal Representation', 'parrot-ir', clearer],
  ['Pip Requirements', 'requirements', tooLong],
  ['Protocol Buffer', 'protobuf', clearer],
  ['Protocol Buffer Text Format', 'textproto', clearer],
  ['Python traceback', 'traceback', tooLong],
  ['Ren\'Py', 'renpy', unwritable],
  ['Rich Text Format', 'rtf', tooLong],
  ['Spline Font Database', 'spline-font', tooLong],
  ['Terraform Template', 'tftpl', tooLong],
  ['Unified Parallel C', 'upc', tooLong],
  ['Untyped Plutus Core', 'plutus-core', tooLong],
  ['Valve Data Format', 'vdf', clearer],
  ['Velocity Template Language', 'velocity', clearer],
  ['Vim script', 'vimscript', clearer],
  ['Visual Basic 6.0', 'vb6', clearer],
  ['Visual Basic .NET', 'vbnet', clearer],
  ['Wavefront Material', 'wavefront-mtl', tooLong],
  ['Web Ontology Language', 'owl', tooLong],
  ['Windows Registry Entries', 'windows-reg', tooLong],
  ['Wolfram Language', 'wolfram', clearer],
  ['World of Warcraft Addon Data', 'wow-toc', tooLong],
  ['X Font Directory Index', 'x-font-index', tooLong],
];

// [tier, reason, languages]. A language without a row has the tier of its linguist type:
// programming is "code", prose "docs", data "data" and markup "markup".
export const tiers = [
  ['code', 'a component with its program in the same file',
    ['Astro', 'HTML+PHP', 'HTML+Razor', 'Marko', 'Riot', 'Svelte', 'Vue', 'templ']],
  ['code', 'an interface definition that programs are generated from, like Thrift and Smithy',
    ['ASN.1', 'Avro IDL', 'FlatBuffers', 'GraphQL', 'Prisma', 'Protocol Buffer', 'RBS',
      'ROS Interface', 'WebAssembly Interface Type', 'YANG']],
  ['code', 'a query language', ['Kusto', 'SPARQL', 'SQL']],
  ['code', 'a build script in a full language', ['Gradle']],
  ['code', 'a grammar that a parser is generated from, like ANTLR and Bison', ['Lark']],
  ['docs', 'a document format',
    ['API Blueprint', 'MDX', 'Mermaid', 'PlantUML', 'RUNOFF', 'Rich Text Format', 'Roff', 'TeX']],
  ['data', 'translations, not documentation', ['Gettext Catalog']],
  ['config', 'says how an image or a process is made, not what it computes',
    ['Dockerfile', 'Procfile', 'Singularity']],
  ['config', 'configures a tool, a service or a build',
    ['ApacheConf', 'BIRD2', 'Browserslist', 'Cabal Config', 'Caddyfile', 'CODEOWNERS', 'Dotenv',
      'EditorConfig', 'GN', 'Git Attributes', 'Git Config', 'Git Revision List', 'Go Module',
      'Go Workspace', 'GtkRC', 'HAProxy', 'Hosts File', 'Ignore List', 'Kickstart', 'NPM Config',
      'Nginx', 'Ninja', 'Option List', 'Pip Requirements', 'RPM Spec',
      'Readline Config', 'Redirect Rules', 'Robots Exclusion Rules', 'SSH Config',
      'ShellCheck Config', 'Soong', 'TextMate Properties', 'Tor Config', 'Wget Config', 'XCompose',
      'cURL Config', 'crontab', 'desktop', 'dircolors', 'nanorc', 'pkg-config']],
];

// [extension, language, reason]: who gets an extension that several languages claim, or none.
const commonest = 'by far the most files of this extension are of this language';
export const extensions = [
  ['.asc', 'AsciiDoc', 'the text form worth reading; signatures and keys share the extension'],
  ['.b', 'Brainfuck', commonest],
  ['.bas', 'BASIC', 'the family that the dialects share'],
  ['.bb', 'BitBake', commonest],
  ['.bf', 'Brainfuck', commonest],
  ['.cfg', 'INI', 'HAProxy has its own file name; most others are sections of keys'],
  ['.cgi', 'Perl', commonest],
  ['.cl', 'OpenCL', commonest],
  ['.cls', 'Apex', commonest],
  ['.cp', 'C++', 'GCC takes it for C++'],
  ['.csl', 'XML', 'citation styles outnumber Kusto queries, which also have ".kql"'],
  ['.cue', 'CUE', commonest],
  ['.d', 'D', commonest],
  ['.ddl', 'SQL', 'data definition in no particular dialect'],
  ['.e', 'Eiffel', commonest],
  ['.for', 'Fortran', commonest],
  ['.fpp', 'Fortran', 'Fortran for the preprocessor'],
  ['.frag', 'GLSL', commonest],
  ['.frm', 'Visual Basic 6.0', commonest],
  ['.fs', 'F#', commonest],
  ['.f', 'Fortran', commonest],
  ['.ftl', 'FreeMarker', commonest],
  ['.fx', 'HLSL', commonest],
  ['.g', 'GAP', 'G-code has other extensions'],
  ['.gml', 'Game Maker Language', commonest],
  ['.gs', 'JavaScript', 'Google Apps Script'],
  ['.h', 'C', 'the header of both C and C++; C is the common subset'],
  ['.inc', 'C++', 'fragments to #include; other languages prefer extensions of their own'],
  ['.j', 'Objective-J', commonest],
  ['.jq', 'jq', commonest],
  ['.k', 'KCL', commonest],
  ['.ks', 'Kickstart', commonest],
  ['.l', 'Lex', commonest],
  ['.m', 'Objective-C', commonest],
  ['.mc', 'Monkey C', commonest],
  ['.md', 'Markdown', commonest],
  ['.mod', 'Modula-2', 'the kernel\'s ".mod" files are build output and go.mod is a file name'],
  ['.mqh', 'MQL5', 'the current version'],
  ['.ms', 'Roff', 'the ms macros'],
  ['.msg', 'ROS Interface', commonest],
  ['.nb', 'Wolfram Language', commonest],
  ['.ncl', 'Nickel', 'the language that is in development'],
  ['.nu', 'Nushell', commonest],
  ['.pc', 'pkg-config', commonest],
  ['.plist', 'XML', commonest],
  ['.plt', 'Gnuplot', commonest],
  ['.pm', 'Perl', commonest],
  ['.pp', 'Puppet', commonest],
  ['.pro', 'QMake', commonest],
  ['.q', 'q', 'Hive queries have ".hql"'],
  ['.r', 'R', commonest],
  ['.rakutest', 'Raku', 'test files, which were ".t" before the language had its name'],
  ['.rs', 'Rust', commonest],
  ['.scd', 'SuperCollider', 'its own document extension'],
  ['.spec', 'RPM Spec', commonest],
  ['.sql', 'SQL', 'the dialects cannot be told apart by name'],
  ['.srt', 'SubRip Text', commonest],
  ['.star', 'Starlark', commonest],
  ['.t', 'Perl', commonest],
  ['.toc', 'World of Warcraft Addon Data', 'the TeX one is build output'],
  ['.ts', 'TypeScript', 'the Qt translation files share the extension'],
  ['.tsx', 'TSX', 'the Tiled tile sets share the extension'],
  ['.txt', 'Text', commonest],
  ['.v', 'Verilog', commonest],
  ['.x', 'RPC', 'the one that is written by hand'],
  ['.yaml', 'YAML', commonest],
  ['.yy', 'Yacc', commonest],
];

// [extension, language, reason]: extensions whose case matters. All others match in any case.
export const casedExtensions = [
  ['.C', 'C++', 'GCC takes it for C++'],
  ['.H', 'C++', 'GCC takes it for a C++ header'],
];

// [file name, language, reason]: file names that the data does not have, or gives to two languages.
const document = 'a document that projects keep at their root';
const conventional = 'the conventional name of such a file';
export const fileNames = [
  ['.eslintrc', 'JSON with Comments', 'ESLint reads JSON with comments and YAML; JSON is commoner'],
  ['.hgignore', 'Ignore List', conventional],
  ['.helmignore', 'Ignore List', conventional],
  ['.gcloudignore', 'Ignore List', conventional],
  ['.mailmap', 'Text', conventional],
  ['.prettierrc', 'YAML', 'Prettier reads JSON and YAML; YAML contains JSON'],
  ['.releaserc', 'YAML', 'semantic-release reads JSON and YAML; YAML contains JSON'],
  ['.yamllint', 'YAML', conventional],
  ['AUTHORS', 'Text', document],
  ['CHANGELOG', 'Text', document],
  ['CHANGES', 'Text', document],
  ['CONTRIBUTING', 'Text', document],
  ['CONTRIBUTORS', 'Text', document],
  ['COPYRIGHT', 'Text', document],
  ['CREDITS', 'Text', document],
  ['ChangeLog', 'Text', document],
  ['HACKING', 'Text', document],
  ['HISTORY', 'Text', document],
  ['HOSTS', 'Hosts File', 'also claimed by INI for Ansible inventories'],
  ['LICENCE', 'Text', document],
  ['LICENSE-APACHE', 'Text', document],
  ['LICENSE-MIT', 'Text', document],
  ['MAINTAINERS', 'Text', document],
  ['NOTICE', 'Text', document],
  ['PATENTS', 'Text', document],
  ['README', 'Text', document],
  ['THANKS', 'Text', document],
  ['TODO', 'Text', document],
  ['UNLICENSE', 'Text', document],
  ['configure.in', 'M4', 'what configure.ac was called'],
  ['dockerfile', 'Dockerfile', 'Docker Desktop\'s file systems do not tell the case'],
  ['hosts', 'Hosts File', 'also claimed by INI for Ansible inventories'],
  ['license', 'Text', document],
  ['meson.options', 'Meson', 'what meson_options.txt is called since Meson 1.1'],
  ['readme', 'Text', document],
];

// [stem, language, reason]: a name "<stem>.<anything>" without a known extension is of this
// language. Variants of one build description are told apart this way.
const variants = 'variants are named by what follows the dot';
export const stems = [
  ['Containerfile', 'Dockerfile', variants],
  ['Dockerfile', 'Dockerfile', variants],
  ['GNUmakefile', 'Makefile', variants],
  ['Jenkinsfile', 'Groovy', variants],
  ['Kbuild', 'Makefile', variants],
  ['Kconfig', 'Kconfig', variants],
  ['Makefile', 'Makefile', variants],
];

// Languages that the data does not have, as linguist would describe them.
export const addedLanguages = [
  // The hardware descriptions that the kernel, U-Boot and Zephyr compile with dtc.
  { name: 'Devicetree', type: 'programming', extensions: ['.dts', '.dtsi', '.dtso'] },
  // The configuration options of the kernel, BusyBox, U-Boot and Zephyr.
  { name: 'Kconfig', type: 'config', filenames: ['Kconfig'] },
];
