// Lets two hosts ask each provider's emulator and writes what they sent as TypeScript (requests.ts), for `tsc --noEmit`:
// kai asks for answers in pieces, kai-whole-turns for whole ones.
import { execFileSync, spawn } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import { createInterface } from 'node:readline';
import { join } from 'node:path';

// A row says which declaration the body of a request has to fit. `adapt` undoes the deliberate irregularities of what is
// sent on the wire; each has its reason beside it.
const openai = { model: 'm', env: { OPENAI_API_KEY: 'k', DEEPSEEK_API_KEY: 'k' } };
const rows = [
  {
    provider: 'deepseek',
    streams: true,
    ...openai,
    requests: [['POST', /\/chat\/completions$/, 'OpenAI.ChatCompletionCreateParams']],
  },
  {
    provider: 'openai',
    ...openai,
    requests: [
      ['POST', /\/assistants$/, 'OpenAI.Beta.AssistantCreateParams'],
      ['POST', /\/assistants\/[^/]+$/, 'OpenAI.Beta.AssistantUpdateParams'],
      ['POST', /\/threads$/, 'OpenAI.Beta.ThreadCreateParams'],
      ['POST', /\/messages$/, 'OpenAI.Beta.Threads.MessageCreateParams'],
      ['POST', /\/runs$/, 'OpenAI.Beta.Threads.RunCreateParams'],
    ],
  },
  {
    provider: 'google',
    streams: true,
    model: 'm',
    env: { GEMINI_API_KEY: 'k' },
    requests: [['POST', /enerateContent$/, 'GoogleBody', adaptGoogle]],
  },
  {
    provider: 'ollama',
    streams: true,
    model: 'm:latest',
    env: {},
    requests: [['POST', /\/api\/chat$/, 'Ollama.ChatRequest']],
  },
];

// The protocol reads both spellings of a member and takes one value for an array of one; the package's declarations know
// one spelling and the array.
function adaptGoogle({ system_instruction: instruction, ...body }) {
  return instruction === undefined
    ? body
    : { ...body, systemInstruction: { ...instruction, parts: [instruction.parts].flat() } };
}

function asksForPieces({ path, body }) {
  return body?.stream === true || path.includes(':stream');
}

async function record({ provider, streams = false, model, env, requests }) {
  const recorded = `${provider}.jsonl`;
  const scenario = `${provider}.json`;
  writeFileSync(scenario, JSON.stringify({ models: [model], rules: [{ answer: 'one two' }] }));
  const server = spawn(
    process.env.KAI_EMULATOR_PROGRAM,
    ['--provider', provider, '--scenario', scenario, '--record', recorded, '--ca-file', `${provider}.pem`],
    { stdio: ['ignore', 'pipe', 'inherit'] },
  );
  const { value } = await createInterface({ input: server.stdout })[Symbol.asyncIterator]().next();
  const ready = JSON.parse(value);
  const trust = ready.ca_file === null ? [] : ['--ca-file', ready.ca_file];
  const reach = ['--provider', provider, '--api-host', ready.host, ...trust, '--db', 'shop.db', '--model', model];
  execFileSync('kai', ['chat', ...reach, '--temperature', '0.5', '--instructions', 'Be brief.'], {
    env: { ...env, PATH: process.env.PATH },
    input: 'How many customers?\nAnd how many products?\n',
    stdio: ['pipe', 'ignore', 'inherit'],
  });
  execFileSync('kai-whole-turns', [provider, ready.host, model, ...trust.slice(1)], {
    stdio: ['ignore', 'ignore', 'inherit'],
  });
  const ended = new Promise((resolve) => server.once('exit', resolve));
  server.kill('SIGTERM');
  await ended;
  const lines = readFileSync(recorded, 'utf8').trim().split('\n').map((line) => JSON.parse(line));
  return requests.flatMap(([method, path, type, adapt = (body) => body]) => {
    const sent = lines.filter((line) => line.method === method && path.test(line.path));
    for (const isStreamed of streams ? [true, false] : []) {
      const count = sent.filter((line) => asksForPieces(line) === isStreamed).length;
      if (count !== 2) {
        throw new Error(`${count} of 2 recorded requests to ${provider} ask ${isStreamed ? 'for pieces' : 'for the whole'}`);
      }
    }
    return sent.map((line) => `export const request: ${type} = ${JSON.stringify(adapt(line.body ?? {}))};`);
  });
}

const statements = [];
for (const row of rows) {
  const found = await record(row);
  if (found.length < 2) {
    throw new Error(`kai sent ${found.length} requests to ${row.provider} that a declaration is known for; expected more`);
  }
  statements.push(...found);
}
const head = `import type { Content, GenerationConfig, SafetySetting } from '@google/genai';
import type * as Ollama from 'ollama';
import type OpenAI from 'openai';

// The package declares the parts of a body, not the body.
interface GoogleBody {
  contents: Content[];
  systemInstruction?: Content;
  generationConfig?: GenerationConfig;
  safetySettings?: SafetySetting[];
}
`;
const numbered = statements.map((statement, i) => statement.replace('request:', `request${i}:`));
writeFileSync(join('.', 'requests.ts'), `${head}\n${numbered.join('\n')}\n`);
console.log(`${statements.length} requests recorded`);
