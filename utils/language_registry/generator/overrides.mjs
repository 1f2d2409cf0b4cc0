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
  ['Debian Package Control File', 'debian-control', tooLong],
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
  ['Win32 Message File', 'windows-mc', tooLong],
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
      'Debian Package Control File', 'EditorConfig', 'GN', 'Git Attributes', 'Git Config',
      'Git Revision List', 'Go Module', 'Go Workspace', 'GtkRC', 'HAProxy', 'Hosts File',
      'Ignore List', 'Kickstart', 'Nginx', 'Ninja', 'Option List', 'Pip Requirements', 'RPM Spec',
      'Readline Config', 'Redirect Rules', 'Robots Exclusion Rules', 'SSH Config',
      'ShellCheck Config', 'Soong', 'TextMate Properties', 'Tor Config', 'Wget Config', 'XCompose',
      'cURL Config', 'crontab', 'desktop', 'dircolors', 'nanorc', 'pkg-config']],
];

// What scripts/survey.py counts in source trees decides the rows below where it has an opinion: an
// extension whose files are mostly binary in two trees or more, or of another kind than the data
// has it, goes to that kind or to none.

// What holds passwords, keys and tokens by its purpose is of no language: a search index that
// answers with a password is a leak.
const secret = 'made for secrets';
const typed = 'a history of commands, passwords typed by mistake among them';
const digits = [...'123456789'];

// [extension, language or null for none, reason]: who gets an extension that the data does not have
// or gives to several languages or to another. An extension that is of no language may have two
// parts, of which the second is of one.
const commonest = 'by far the most files of this extension are of this language';
const maintainer = 'a script of a Debian package';
const project = 'a project file, which is XML';
export const extensions = [
  ['.env', null, secret],
  ['.p8', null, 'private keys in PKCS #8, as Apple hands them out; PICO-8 cartridges share it'],
  ['.rhistory', null, typed],
  ['.tfstate', null, secret + ': Terraform writes all values into it'],
  ['.tfstate.backup', null, secret],
  ['.tfvars', null, 'what Terraform is told and not to be committed, as its ignore template says'],
  ['.tfvars.json', null, 'the same in JSON'],
  ['.boot', null, 'boot images of Erlang and Chez Scheme; the script of Boot has a name'],
  ['.es', null, 'texts in Spanish (README.es)'],
  ['.fr', null, 'texts in French'],
  ['.nl', null, 'texts in Dutch'],
  ['.mo', null, 'compiled message catalogs, 1,633 of 1,634'],
  ['.mod', null, 'compiled modules of .NET and Fortran, and music; go.mod is a file name'],
  ['.res', null, 'compiled resources of Windows and ICU, 60 of 75'],
  ['.scpt', null, 'compiled; the text form is ".applescript"'],
  ['.tab', null, 'tables of any kind, none of them SQL'],
  ['.uc', null, 'of UnrealScript, of ucode and of graphics firmware, and of none mostly'],
  ['.el.sig', null, 'a signature'],
  ['.exe.sig', null, 'a signature'],
  ...digits.map((digit) => [`.log.${digit}`, null, 'a rotated log']),
  ...digits.map((digit) => [`.so.${digit}`, null, 'a shared library with its version']),
  ['.ac', 'M4', 'parts of what configure is made from'],
  ['.am', 'Makefile', 'parts of what Automake reads'],
  ['.appup', 'Erlang', 'how a release goes from one version to another, in Erlang terms'],
  ['.asc', 'AsciiDoc', 'the text form worth reading; signatures and keys share the extension'],
  ['.b', 'Brainfuck', commonest],
  ['.bas', 'BASIC', 'the family that the dialects share'],
  ['.bb', 'BitBake', commonest],
  ['.bf', 'Brainfuck', commonest],
  ['.bsh', 'Java', 'BeanShell, a superset of an early Java'],
  ['.cfg', 'INI', 'HAProxy has its own file name; most others are sections of keys'],
  ['.cgi', 'Perl', commonest],
  ['.cl', 'OpenCL', commonest],
  ['.cls', 'TeX', 'classes of LaTeX, 11 of 11'],
  ['.comp', 'GLSL', 'compute shaders'],
  ['.conf', 'INI', 'sections or keys in most dialects'],
  ['.config', 'XML', '.NET configuration, before Erlang\'s and fragments of Kconfig'],
  ['.cp', 'C++', 'GCC takes it for C++'],
  ['.csl', 'XML', 'citation styles outnumber Kusto queries, which also have ".kql"'],
  ['.cue', 'CUE', commonest],
  ['.d', 'D', commonest],
  ['.debian', 'Text', 'README.Debian and the like'],
  ['.ddl', 'SQL', 'data definition in no particular dialect'],
  ['.def', 'C', 'tables to #include, before module definitions of Windows'],
  ['.e', 'Eiffel', commonest],
  ['.eex', 'HTML+EEX', 'the template language by itself'],
  ['.exp', 'Tcl', 'Expect, which DejaGnu\'s tests are written in'],
  ['.for', 'Fortran', commonest],
  ['.fpp', 'Fortran', 'Fortran for the preprocessor'],
  ['.frag', 'GLSL', commonest],
  ['.frm', 'Visual Basic 6.0', commonest],
  ['.fs', 'F#', commonest],
  ['.f', 'Fortran', commonest],
  ['.ftl', 'FreeMarker', commonest],
  ['.fx', 'HLSL', commonest],
  ['.g', 'ANTLR', 'grammars of ANTLR 2 and 3, and of tools like it; GAP has other extensions'],
  ['.gml', 'Game Maker Language', commonest],
  ['.gs', 'JavaScript', 'Google Apps Script'],
  ['.h', 'C', 'the header of both C and C++; C is the common subset'],
  ['.inc', 'C++', 'fragments to #include; other languages prefer extensions of their own'],
  ['.inf', 'INI', 'setup information of Windows'],
  ['.j', 'Objective-J', commonest],
  ['.jq', 'jq', commonest],
  ['.jspf', 'Java Server Pages', 'a fragment of a page'],
  ['.k', 'KCL', commonest],
  ['.ks', 'Kickstart', commonest],
  ['.l', 'Lex', commonest],
  ['.lfm', 'Pascal', 'forms of Lazarus, as ".dfm" is of Delphi'],
  ['.lpi', 'XML', project],
  ['.m', 'Objective-C', commonest],
  ['.manifest', 'XML', 'of Windows programs and assemblies'],
  ['.master', 'ASP.NET', 'a page that others are laid into'],
  ['.mc', 'Win32 Message File', 'message texts in all five trees that have it'],
  ['.md', 'Markdown', commonest],
  ['.mib', 'ASN.1', 'what SNMP manages is described in it'],
  ['.mlg', 'OCaml', 'grammars of Coq with OCaml in them'],
  ['.mqh', 'MQL5', 'the current version'],
  ['.ms', 'Roff', 'the ms macros'],
  ['.msbuild', 'XML', project],
  ['.msg', 'ROS Interface', commonest],
  ['.n', 'Roff', 'man pages of Tcl, 125 of 125'],
  ['.nb', 'Wolfram Language', commonest],
  ['.ncl', 'Nickel', 'the language that is in development'],
  ['.ndjson', 'JSON', 'a value a line, as ".jsonl"'],
  ['.nu', 'Nushell', commonest],
  ['.pbxproj', 'OpenStep Property List', 'projects of Xcode'],
  ['.pc', 'pkg-config', commonest],
  ['.pgc', 'C', 'C with SQL in it, which ECPG takes out'],
  ['.plist', 'XML', commonest],
  ['.plt', 'Gnuplot', commonest],
  ['.pm', 'Perl', commonest],
  ['.pom', 'Maven POM', 'what pom.xml is called in a repository'],
  ['.postinst', 'Shell', maintainer],
  ['.postrm', 'Shell', maintainer],
  ['.preinst', 'Shell', maintainer],
  ['.prerm', 'Shell', maintainer],
  ['.pp', 'Puppet', commonest],
  ['.pro', 'QMake', commonest],
  ['.q', 'q', 'Hive queries have ".hql"'],
  ['.qrc', 'XML', 'lists of resources of Qt'],
  ['.r', 'R', commonest],
  ['.rakutest', 'Raku', 'test files, which were ".t" before the language had its name'],
  ['.rs', 'Rust', commonest],
  ['.scd', 'SuperCollider', 'its own document extension'],
  ['.sitemap', 'XML', 'the pages of an ASP.NET site'],
  ['.spec', 'RPM Spec', commonest],
  ['.sql', 'SQL', 'the dialects cannot be told apart by name'],
  ['.srt', 'SubRip Text', commonest],
  ['.star', 'Starlark', commonest],
  ['.strings', 'OpenStep Property List', 'texts of macOS and iOS programs'],
  ['.t', 'Perl', commonest],
  ['.tc', 'Shell', 'the kernel\'s test cases for ftrace'],
  ['.tfvars.example', 'HCL', 'an example that people commit'],
  ['.tld', 'XML', 'tag libraries of JSP'],
  ['.toc', 'World of Warcraft Addon Data', 'the TeX one is build output'],
  ['.tt', 'HTML+ERB', 'what Rails\' generators fill in; T4 of .NET is rarer'],
  ['.ts', 'TypeScript', 'the Qt translation files share the extension'],
  ['.tsx', 'TSX', 'the Tiled tile sets share the extension'],
  ['.txt', 'Text', commonest],
  ['.v', 'Verilog', commonest],
  ['.vcproj', 'XML', project],
  ['.vm', 'Velocity Template Language', commonest],
  ['.x', 'RPC', 'the one that is written by hand'],
  ['.yaml', 'YAML', commonest],
  ['.yy', 'Yacc', commonest],
];

// [extension, language, reason]: extensions whose case matters. All others match in any case.
export const casedExtensions = [
  ['.C', 'C++', 'GCC takes it for C++'],
  ['.H', 'C++', 'GCC takes it for a C++ header'],
  ['.P', 'Prolog', 'the sources of XSB'],
];

// [suffix, reason, extensions]: a template of a file is of the language of what is made from it.
const byProgram = 'filled in by configure, CMake or Meson';
const byPerson = 'to be copied and filled in by a person';
export const templates = [
  ['.in', byProgram,
    ['.1', '.3', '.5', '.7', '.8', '.adb', '.bat', '.c', '.cc', '.cfg', '.conf', '.cpp', '.css',
      '.cxx', '.el', '.f90', '.hpp', '.html', '.hxx', '.ini', '.java', '.js', '.json', '.lisp',
      '.lsp', '.lua', '.m4', '.md', '.mk', '.ml', '.php', '.pl', '.plist', '.pm', '.postinst',
      '.postrm', '.preinst', '.prerm', '.properties', '.ps1', '.py', '.qrc', '.rb', '.rc', '.rst',
      '.service', '.socket', '.spec', '.sql', '.target', '.tex', '.texi', '.timer', '.toml',
      '.txt', '.ui', '.xml', '.yaml', '.yml']],
  ['.dist', byPerson, ['.conf', '.ini', '.neon', '.php', '.yaml', '.yml']],
  ['.example', byPerson, ['.conf', '.php', '.py', '.yml']],
  ['.sample', byPerson, ['.conf', '.ini', '.json', '.php', '.py', '.toml', '.yaml', '.yml']],
  ['.src', 'filled in by a make rule, as ".app.src"', ['.appup']],
  ['.template', 'filled in by a generator or a test', ['.java', '.js', '.kt', '.xml']],
  ['.tt', 'filled in by Thor', ['.html', '.js', '.json', '.md', '.rb', '.yml']],
  ['-tpl', 'filled in by Django', ['.py']],
  ['_shipped', 'what a generator made, committed for those who lack it', ['.c', '.h']],
];

// [file name, language or null for none, reason]: file names that the data does not have, or gives
// to two languages.
const document = 'a document that projects keep at their root';
const conventional = 'the conventional name of such a file';
const script = 'a well-known script without an extension';
const ofDebian = 'a part of a Debian package\'s description';
const lock = 'a lock in this format';
const variables = ['', '.ci', '.dev', '.development', '.development.local', '.local', '.prod',
  '.production', '.staging', '.test', '.testing'];
export const fileNames = [
  ...variables.map((variant) => [`.env${variant}`, null, secret]),
  ...['credentials', 'client_secret', 'client_secrets', 'secrets'].map(
    (name) => [`${name}.json`, null, secret]),
  ...['.secrets', 'credentials', 'secrets'].flatMap(
    (name) => ['toml', 'yaml', 'yml'].map((format) => [`${name}.${format}`, null, secret])),
  ['.envrc', null, secret + ', as .env is'],
  ['.my.cnf', null, secret + ': the passwords of MySQL'],
  ['.mylogin.cnf', null, secret + ': the passwords of MySQL'],
  ['.npmrc', null, secret + ': the tokens of npm'],
  ['key.properties', null, secret + ': the passwords of Android\'s signing keys'],
  ['keystore.properties', null, secret + ': the passwords of Android\'s signing keys'],
  ['.Rapp.history', null, typed],
  ['.Rhistory', null, typed],
  ['.bash_history', null, typed],
  ['.env.dist', 'Dotenv', 'what Symfony calls .env.example'],
  ['example.env', 'Dotenv', 'an example that people commit'],
  ['sample.env', 'Dotenv', 'an example that people commit'],
  ['template.env', 'Dotenv', 'an example that people commit'],
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
  ['CMakeLists.txt.in', 'CMake', 'a template of it'],
  ['CONTRIBUTING', 'Text', document],
  ['CONTRIBUTORS', 'Text', document],
  ['COPYRIGHT', 'Text', document],
  ['CREDITS', 'Text', document],
  ['ChangeLog', 'Text', document],
  ['Changes', 'Text', document],
  ['Chart.lock', 'YAML', lock],
  ['DESCRIPTION', 'Debian Package Control File', 'of an R package, in that format'],
  ['Forc.lock', 'TOML', lock],
  ['HACKING', 'Text', document],
  ['HISTORY', 'Text', document],
  ['HOSTS', 'Hosts File', 'also claimed by INI for Ansible inventories'],
  ['LICENCE', 'Text', document],
  ['LICENSE-APACHE', 'Text', document],
  ['LICENSE-MIT', 'Text', document],
  ['MAINTAINERS', 'Text', document],
  ['MIT-LICENSE', 'Text', document],
  ['Move.lock', 'TOML', lock],
  ['NAMESPACE', 'R', 'what an R package exports, as R calls'],
  ['NOTICE', 'Text', document],
  ['PATENTS', 'Text', document],
  ['Podfile.lock', 'YAML', lock],
  ['README', 'Text', document],
  ['README.source', 'Text', document],
  ['Scarb.lock', 'TOML', lock],
  ['THANKS', 'Text', document],
  ['TODO', 'Text', document],
  ['UNLICENSE', 'Text', document],
  ['ar-lib', 'Shell', script],
  ['buf.lock', 'YAML', lock],
  ['build.boot', 'Clojure', 'the script of Boot'],
  ['cabal.project.freeze', 'Cabal Config', lock],
  ['changelog', 'Text', ofDebian],
  ['compile', 'Shell', script],
  ['conan.lock', 'JSON', lock],
  ['config.guess', 'Shell', script],
  ['config.rpath', 'Shell', script],
  ['config.sub', 'Shell', script],
  ['configure', 'Shell', script],
  ['control', 'Debian Package Control File', ofDebian],
  ['copyright', 'Text', ofDebian],
  ['depcomp', 'Shell', script],
  ['devbox.lock', 'JSON', lock],
  ['devenv.lock', 'JSON', lock],
  ['dune', 'Dune', 'the build description of a directory'],
  ['dune-workspace', 'Dune', conventional],
  ['foundry.lock', 'JSON', lock],
  ['gems.locked', 'Gemfile.lock', lock],
  ['install-sh', 'Shell', script],
  ['luarocks.lock', 'Lua', lock],
  ['missing', 'Shell', script],
  ['mkinstalldirs', 'Shell', script],
  ['nimble.lock', 'JSON', lock],
  ['postinst', 'Shell', maintainer],
  ['postrm', 'Shell', maintainer],
  ['preinst', 'Shell', maintainer],
  ['prerm', 'Shell', maintainer],
  ['pubspec.lock', 'YAML', lock],
  ['py-compile', 'Shell', script],
  ['renv.lock', 'JSON', lock],
  ['requirements.lock', 'Pip Requirements', lock],
  ['requirements-dev.lock', 'Pip Requirements', lock],
  ['rules', 'Makefile', ofDebian],
  ['shard.lock', 'YAML', lock],
  ['soldeer.lock', 'TOML', lock],
  ['spago.lock', 'YAML', lock],
  ['stack.yaml.lock', 'YAML', lock],
  ['symfony.lock', 'JSON', lock],
  ['sys.config', 'Erlang', 'the configuration of a release'],
  ['test-driver', 'Shell', script],
  ['ylwrap', 'Shell', script],
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
  ['makefile', 'Makefile', variants],
];

// Languages that the data does not have, as linguist would describe them.
export const addedLanguages = [
  // The hardware descriptions that the kernel, U-Boot and Zephyr compile with dtc.
  { name: 'Devicetree', type: 'programming', extensions: ['.dts', '.dtsi', '.dtso'] },
  { name: 'DTD', type: 'data', extensions: ['.dtd'] },
  // The interfaces of COM, CORBA and Mozilla; not the Interactive Data Language, which is "idl".
  { name: 'Interface IDL', type: 'programming', extensions: ['.idl'] },
  // The configuration options of the kernel, BusyBox, U-Boot and Zephyr.
  { name: 'Kconfig', type: 'config', filenames: ['Kconfig'] },
  // The packages of OCaml.
  { name: 'opam', type: 'config', extensions: ['.opam'], filenames: ['opam'] },
  // DocBook before it was XML.
  { name: 'SGML', type: 'prose', extensions: ['.sgml'] },
  // Dialogs, menus and texts, which Windows' resource compiler links into a program.
  { name: 'Windows RC', type: 'programming', extensions: ['.rc'] },
];
