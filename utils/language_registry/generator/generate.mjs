// Writes ../languages.inc, the registry's table of languages, from linguist's data and the rows of
// overrides.mjs. The table is committed, so a build needs none of this. To refresh it, set the
// version of linguist-languages in package.json, and then in this directory:
//
//   npm install --ignore-scripts && npm run generate
//
// Which language an extension belongs to that several claim: the row of overrides.mjs; else the language
// whose first extension it is, since linguist puts the primary one first; else, among equals, the
// one that is a programming language, that is more popular, and that comes first by name.

import { readFileSync, writeFileSync } from 'node:fs';

import * as linguist from 'linguist-languages';

import * as overrides from './overrides.mjs';

const longestName = 15;
const tierOfType = { programming: 'code', prose: 'docs', data: 'data', markup: 'markup' };

function fail(message) {
  throw new Error(`overrides.mjs: ${message}`);
}

/** Compares by code unit, as the registry does, and not by locale. */
function compare(left, right) {
  return left < right ? -1 : left > right ? 1 : 0;
}

/** The linguist languages after drops, additions and merges, by linguist name. */
function collectLanguages() {
  const languages = new Map();
  for (const source of [...Object.values(linguist), ...overrides.addedLanguages]) {
    if (languages.has(source.name)) fail(`${source.name} is in the data already`);
    languages.set(source.name, {
      ...source,
      // Linguist's own matching ignores case.
      extensions: (source.extensions ?? []).map((text) => text.toLowerCase()),
      fileNames: source.filenames ?? [],
      primary: source.extensions?.[0]?.toLowerCase(),
    });
  }
  const take = (name) => {
    const language = languages.get(name) ?? fail(`no language ${name}`);
    languages.delete(name);
    return language;
  };
  for (const [name] of overrides.droppedLanguages) take(name);
  for (const [name, into] of overrides.merges) {
    const part = take(name);
    const whole = languages.get(into) ?? fail(`no language ${into}`);
    whole.extensions = [...new Set([...whole.extensions, ...part.extensions])];
    whole.fileNames = [...new Set([...whole.fileNames, ...part.fileNames])];
  }
  return languages;
}

/** The language that wins a contested extension in the absence of an override. */
function defaultOwner(extension, claimants) {
  const popularity = (language) => {
    const rank = overrides.popularity.indexOf(language.name);
    return rank < 0 ? overrides.popularity.length : rank;
  };
  return [...claimants].sort((left, right) =>
    (right.primary === extension) - (left.primary === extension) ||
    (right.type === 'programming') - (left.type === 'programming') ||
    popularity(left) - popularity(right) ||
    compare(left.name, right.name))[0];
}

/** Maps each key to its language or to null, given the rows of overrides and a rule for others. */
function resolve(languages, keysOf, rows, rule) {
  const claims = new Map();
  for (const language of languages.values()) {
    for (const key of keysOf(language)) {
      claims.set(key, [...(claims.get(key) ?? []), language]);
    }
  }
  const owners = new Map();
  for (const [key, name] of rows) {
    if (owners.has(key)) fail(`${key} has two rows`);
    const language = name === null ? null : languages.get(name) ?? fail(`no language ${name}`);
    const claimants = claims.get(key) ?? [];
    if (language === null && claimants.length === 0 && !key.includes('.', 1)) {
      fail(`${key} is of no language anyway`);
    }
    if (claimants.length === 1 && claimants[0] === language) fail(`${key} is ${name}'s anyway`);
    owners.set(key, language);
  }
  for (const [key, claimants] of claims) {
    if (!owners.has(key)) owners.set(key, rule(key, claimants));
  }
  return owners;
}

/** The language's short name. */
function nameOf(language) {
  const override = overrides.names.find(([linguistName]) => linguistName === language.name);
  if (override) return override[1];
  const shorten = (text) => text.toLowerCase()
    .replaceAll('++', 'pp').replaceAll('#', 'sharp').replaceAll('.', '').replace(/[ +_/]+/g, '-');
  return [language.name, ...(language.aliases ?? [])].map(shorten)
    .find((name) => name.length <= longestName) ?? fail(`${language.name} needs a name`);
}

function tierOf(language) {
  const override = overrides.tiers.find(([, , languages]) => languages.includes(language.name));
  return override?.[0] ?? tierOfType[language.type] ?? language.type;
}

function keysOwnedBy(language, owners) {
  return [...owners].filter(([, owner]) => owner === language).map(([key]) => key).sort(compare);
}

const languages = collectLanguages();
for (const name of overrides.popularity) {
  if (!languages.has(name)) fail(`no language ${name}`);
}

const extensions = resolve(languages, (language) => language.extensions,
  [...overrides.extensions, ...overrides.casedExtensions], defaultOwner);
const fileNames = resolve(languages, (language) => language.fileNames, overrides.fileNames,
  (key, claimants) => claimants.length === 1 ? claimants[0] : fail(`${key} is contested`));
const stems = resolve(languages, () => [], overrides.stems, undefined);

for (const [suffix, , inner] of overrides.templates) {
  for (const extension of inner) {
    const language = extensions.get(extension) ?? fail(`${extension} is of no language`);
    const key = extension + suffix;
    if (extensions.get(key) === language) fail(`${key} is ${language.name}'s anyway`);
    extensions.set(key, language);
  }
}

/** Takes what is of no language out of `owners`, and returns what has to be said to be so. */
function takeUnowned(owners, isOwnedOtherwise) {
  const unowned = [...owners].filter(([, owner]) => owner === null).map(([key]) => key);
  for (const key of unowned) owners.delete(key);
  return unowned.filter(isOwnedOtherwise).sort(compare);
}

const endsInAnExtension = (text) => [...text.matchAll(/\./g)].some(({ index }) =>
  index > 0 && extensions.has(text.slice(index).toLowerCase()));
const unowned = {
  extensions: takeUnowned(extensions, endsInAnExtension),
  fileNames: takeUnowned(fileNames, endsInAnExtension),
};

// A language that lost all that it claimed has no row.
const found = new Set([...extensions.values(), ...fileNames.values()]);
const namesFound = new Set([...found].map((language) => language.name));
for (const [name] of overrides.names) {
  if (!namesFound.has(name)) fail(`${name} is not in the table and needs no name`);
}
for (const [tier, , names] of overrides.tiers) {
  for (const name of names) {
    if (!namesFound.has(name)) fail(`${name} is not in the table and needs no tier`);
    if (tierOfType[languages.get(name).type] === tier) fail(`${name} is ${tier} anyway`);
  }
}

const rows = [...found].map((language) => ({
  name: nameOf(language),
  tier: tierOf(language),
  extensions: keysOwnedBy(language, extensions),
  fileNames: keysOwnedBy(language, fileNames),
  stems: keysOwnedBy(language, stems),
})).sort((left, right) => compare(left.name, right.name));

rows.forEach((row, index) => {
  if (!/^[a-z0-9]([a-z0-9-]*[a-z0-9])?$/.test(row.name) || row.name.length > longestName) {
    fail(`bad language name ${row.name}`);
  }
  if (row.name === rows[index - 1]?.name) fail(`two languages are named ${row.name}`);
  for (const key of [...row.extensions, ...row.fileNames, ...row.stems]) {
    if (!/^[\x21-\x7e]+$/.test(key)) fail(`the table cannot hold "${key}"`);
  }
});

rows.push({ name: '', tier: '', ...unowned, stems: [] });

/** A C++ string literal, on several lines when it is long. */
function literal(words) {
  const lines = [''];
  for (const word of words) {
    const line = lines.at(-1);
    const longer = line === '' && lines.length === 1 ? word : `${line} ${word}`;
    if (longer.length > 88) lines.push(` ${word}`);
    else lines[lines.length - 1] = longer;
  }
  return lines.map((line) => JSON.stringify(line)).join('\n     ');
}

function format(row) {
  const fields = [JSON.stringify(row.name), JSON.stringify(row.tier), literal(row.extensions),
    literal(row.fileNames), literal(row.stems)];
  const line = `{${fields.join(', ')}},`;
  if (line.length <= 100 && !line.includes('\n')) return line;
  return `{${fields[0]}, ${fields[1]},\n     ${fields.slice(2).join(',\n     ')}},`;
}

const { version } = JSON.parse(readFileSync(
  new URL('node_modules/linguist-languages/package.json', import.meta.url)));
const header = `\
// Generated by generator/generate.mjs from linguist-languages ${version}, which is under the MIT
// License, Copyright (c) Ika, as is GitHub Linguist, its source, Copyright (c) GitHub, Inc. Do not
// edit: change generator/overrides.mjs and generate again.
//
// {name, tier, extensions, file names, file-name stems}, the lists separated by spaces. The last
// row has no name: what it lists is of no language, though it ends in an extension of one.
`;
const isSecret = ([, language, reason]) => language === null && reason.startsWith(overrides.secret);
const secrets = [
  ...overrides.extensions.filter(isSecret).map(([extension]) => `*${extension}`),
  ...overrides.fileNames.filter(isSecret).map(([name]) => name),
].sort(compare);
writeFileSync(new URL('../secrets.inc', import.meta.url), `\
// Generated by generator/generate.mjs from generator/overrides.mjs: names that often hold secrets.
` + secrets.map((name) => `${JSON.stringify(name)},\n`).join(''));
writeFileSync(new URL('../languages.inc', import.meta.url),
  header + rows.map(format).join('\n') + '\n');
console.log(
  `${rows.length - 1} languages, ${extensions.size} extensions, ${fileNames.size} file names`);
console.log('not in the table, having nothing that is not another language\'s:',
  [...languages.values()].filter((language) => !found.has(language))
    .map((language) => language.name).join(', '));
