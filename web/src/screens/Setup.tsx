import { useMemo, useState } from 'preact/hooks';

import { cameraCoaches, categoryNames, exercises, presets, type Category, type Circuit } from '../catalogue';
import { customId, deleteCustomCircuit, loadCustomCircuits, saveCustomCircuit } from '../circuits';
import { clock, daysText, minuteToTime, timeToMinute } from '../format';
import { heatmap, summarise } from '../history';
import { DayPicker } from '../components/DayPicker';
import type { Native } from '../native';
import { totalSeconds } from '../runner';

// The setup window: what the lockout runs, when Tovin may interrupt, the week as the shell
// holds it, and the history of promises kept and broken.
export function Setup({ native }: { native: Native }) {
  const [custom, setCustom] = useState<Circuit[]>(() => loadCustomCircuits());
  const [workout, setWorkout] = useState(native.lockoutWorkoutId ?? '');
  const [days, setDays] = useState(() => new Set(native.schedule.weekdays));
  const [from, setFrom] = useState(minuteToTime(native.schedule.fromMinute));
  const [to, setTo] = useState(minuteToTime(native.schedule.toMinute));
  const [trigger, setTrigger] = useState(String(native.schedule.triggerAfterMinutes));
  const [status, setStatus] = useState('');

  const choices = [...presets, ...custom];
  const fromMinute = timeToMinute(from);
  const toMinute = timeToMinute(to);
  const triggerMinutes = Number(trigger);
  const problems = [
    !choices.some((c) => c.id === workout) &&
      !cameraCoaches.some((c) => c.id === workout) &&
      'Choose the workout a lockout runs.',
    days.size === 0 && 'Pick at least one day.',
    (fromMinute === undefined || toMinute === undefined) && 'Enter the hours as HH:MM.',
    !(Number.isFinite(triggerMinutes) && triggerMinutes >= 5) && 'Continuous use must be at least 5 minutes.',
  ].filter((p): p is string => typeof p === 'string');

  const save = () => {
    if (problems.length > 0) {
      setStatus(problems[0]);
      return;
    }
    native.saveSettings({
      lockoutWorkoutId: workout,
      weekdays: [...days].sort((a, b) => a - b),
      fromMinute: fromMinute!,
      toMinute: toMinute!,
      triggerAfterMinutes: Math.max(5, Math.round(triggerMinutes)),
      onboarded: true,
    });
    setStatus('Saved. Tovin will hold you to it.');
  };

  return (
    <div class="screen setup">
      <header>
        <p class="eyebrow">Tovin</p>
        <h1>{native.onboarded ? 'Your setup' : 'Set up your breaks'}</h1>
        {!native.onboarded && (
          <p class="lead">
            Pick the workout a lockout runs and the hours Tovin may interrupt you. When a block falls due, your
            screens stay covered until you have done it.
          </p>
        )}
      </header>

      <section aria-labelledby="workout-title">
        <h2 id="workout-title">The workout a lockout runs</h2>
        <div class="choices" role="radiogroup" aria-labelledby="workout-title">
          {choices.map((c) => (
            <label class={`choice${workout === c.id ? ' chosen' : ''}`}>
              <input type="radio" name="workout" value={c.id} checked={workout === c.id} onChange={() => setWorkout(c.id)} />
              <span class="choice-name">{c.name}</span>
              <span class="choice-detail">
                {c.description} · about {Math.max(1, Math.round(totalSeconds(c) / 60))} min
              </span>
            </label>
          ))}
        </div>
        <h3 id="coach-title">Or let the camera count your reps</h3>
        <div class="choices" role="radiogroup" aria-labelledby="coach-title">
          {cameraCoaches.map((c) => (
            <label class={`choice${workout === c.id ? ' chosen' : ''}`}>
              <input type="radio" name="workout" value={c.id} checked={workout === c.id} onChange={() => setWorkout(c.id)} />
              <span class="choice-name">{c.name}</span>
              <span class="choice-detail">{c.description}. The picture never leaves this computer.</span>
            </label>
          ))}
        </div>
        <CircuitBuilder
          onSave={(c) => {
            setCustom(saveCustomCircuit(c));
            setWorkout(c.id);
          }}
        />
        {custom.length > 0 && (
          <ul class="plain small">
            {custom.map((c) => (
              <li>
                {c.name}{' '}
                <button class="link" onClick={() => setCustom(deleteCustomCircuit(c.id))}>
                  Delete {c.name}
                </button>
              </li>
            ))}
          </ul>
        )}
      </section>

      <section aria-labelledby="hours-title">
        <h2 id="hours-title">When Tovin may interrupt</h2>
        <DayPicker days={days} onChange={setDays} />
        <div class="row">
          <label>
            From <input type="time" value={from} onInput={(e) => setFrom((e.target as HTMLInputElement).value)} />
          </label>
          <label>
            Until <input type="time" value={to} onInput={(e) => setTo((e.target as HTMLInputElement).value)} />
          </label>
        </div>
        <p class="muted small">
          An end earlier than the start runs past midnight. The same time for both means any time of day.
        </p>
        <label class="row">
          Lock me out after
          <input
            type="number"
            min={5}
            step={5}
            value={trigger}
            onInput={(e) => setTrigger((e.target as HTMLInputElement).value)}
            aria-describedby="trigger-note"
          />
          minutes of continuous use
        </label>
        <p id="trigger-note" class="muted small">
          At least 5. Stepping away for a few minutes starts the count again.
        </p>
      </section>

      <div class="save-row">
        <button class="primary" onClick={save}>
          Save
        </button>
        <p class="status" role="status">
          {status}
        </p>
      </div>

      <Week native={native} />
      <History native={native} />
    </div>
  );
}

function CircuitBuilder({ onSave }: { onSave: (c: Circuit) => void }) {
  const [open, setOpen] = useState(false);
  const [name, setName] = useState('');
  const [category, setCategory] = useState<Category | 'all'>('all');
  const [picked, setPicked] = useState<string[]>([]);
  const shown = exercises.filter((e) => category === 'all' || e.category === category);

  if (!open)
    return (
      <button class="secondary" onClick={() => setOpen(true)}>
        Build a custom circuit
      </button>
    );
  return (
    <div class="builder" role="group" aria-labelledby="builder-title">
      <h3 id="builder-title">Custom circuit</h3>
      <div class="row">
        <label>
          Name <input value={name} onInput={(e) => setName((e.target as HTMLInputElement).value)} />
        </label>
        <label>
          Show
          <select value={category} onChange={(e) => setCategory((e.target as HTMLSelectElement).value as Category | 'all')}>
            <option value="all">All {exercises.length} exercises</option>
            {(Object.keys(categoryNames) as Category[]).map((c) => (
              <option value={c}>{categoryNames[c]}</option>
            ))}
          </select>
        </label>
      </div>
      <div class="builder-columns">
        <ul class="plain picker" aria-label="Exercises">
          {shown.map((e) => (
            <li>
              <button class="link" onClick={() => setPicked([...picked, e.id])}>
                Add {e.name}
              </button>
              <span class="muted small"> {'reps' in e.target ? `${e.target.reps} reps` : clock(e.target.seconds)}</span>
            </li>
          ))}
        </ul>
        <ol class="picked" aria-label="Your circuit">
          {picked.map((id, i) => (
            <li>
              {exercises.find((e) => e.id === id)?.name}{' '}
              <button class="link" onClick={() => setPicked(picked.filter((_, j) => j !== i))}>
                Remove
              </button>
            </li>
          ))}
          {picked.length === 0 && <li class="muted">Add moves from the list.</li>}
        </ol>
      </div>
      <button
        class="primary"
        disabled={picked.length === 0 || name.trim() === ''}
        onClick={() => {
          onSave({
            id: customId(name),
            name: name.trim(),
            description: `${picked.length} moves you chose`,
            restSeconds: 10,
            items: picked.map((exercise) => ({ exercise })),
          });
          setOpen(false);
          setPicked([]);
          setName('');
        }}
      >
        Save circuit
      </button>
    </div>
  );
}

function Week({ native }: { native: Native }) {
  const kinds = { workout: 'Workout', away: 'Away', retest: 'Fitness test' } as const;
  return (
    <section aria-labelledby="week-title">
      <h2 id="week-title">Your week</h2>
      {native.blocks.length === 0 ? (
        <p class="muted">No blocks yet. A fitness test proposes a plan; you can also edit schedule.json by hand.</p>
      ) : (
        <table class="week">
          <thead>
            <tr>
              <th scope="col">Time</th>
              <th scope="col">Block</th>
              <th scope="col">Kind</th>
              <th scope="col">Days</th>
            </tr>
          </thead>
          <tbody>
            {native.blocks.map((b) => (
              <tr>
                <td>{b.at}</td>
                <td>{b.label}</td>
                <td>
                  {kinds[b.kind] ?? b.kind}
                  {b.minutes ? `, ${b.minutes} min` : ''}
                </td>
                <td>{daysText(b.days)}</td>
              </tr>
            ))}
          </tbody>
        </table>
      )}
    </section>
  );
}

function History({ native }: { native: Native }) {
  const summary = useMemo(() => summarise(native.promises), [native.promises]);
  const grid = useMemo(() => heatmap(native.promises, new Date()), [native.promises]);
  return (
    <section aria-labelledby="history-title">
      <h2 id="history-title">Promises</h2>
      <p class="standing">
        <span>
          <strong>{summary.streak}</strong> in a row
        </span>
        <span>
          best <strong>{summary.best}</strong>
        </span>
        <span>
          <strong>{summary.tovin}</strong> kept{summary.attested > 0 ? ` (${summary.attested} on your word)` : ''}
        </span>
        <span>
          <strong>{summary.broken}</strong> broken
        </span>
      </p>
      <div class="heatmap" role="img" aria-label={`Last 12 weeks: ${summary.tovin} kept, ${summary.broken} broken in all`}>
        {grid.map((week) => (
          <div class="week-column">
            {week.map((d) => (
              <span
                class={`cell${d.future ? ' future' : d.broken > 0 ? ' broken' : d.held > 1 ? ' held-more' : d.held > 0 ? ' held' : ''}`}
                title={`${d.day}: ${d.held} kept, ${d.broken} broken`}
              />
            ))}
          </div>
        ))}
      </div>
      <p class="legend small">
        <span class="cell held" /> kept <span class="cell held-more" /> kept more than once <span class="cell broken" /> broken
      </p>
      {summary.reasons.length > 0 && (
        <>
          <h3>Why promises were broken</h3>
          <ul class="plain">
            {summary.reasons.map((r) => (
              <li>
                {r.reason}: {r.count}
              </li>
            ))}
          </ul>
        </>
      )}
    </section>
  );
}
