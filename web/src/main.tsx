import { Component, render, type ComponentChildren } from 'preact';

import { resolveCircuit } from './circuits';
import { connect, type Native } from './native';
import { daysUntilRetest, lastRetestKey } from './retest';
import { Locked } from './screens/Locked';
import { Retest } from './screens/Retest';
import { Setup } from './screens/Setup';
import './styles.css';

// A render error shows the failure note (drawn by index.html's CSS, so it is no text to the
// shell): the person reads what to do, and the shell sees a page that rendered nothing and
// gives the screen back rather than hold it for a workout that cannot run.
const failed = <div class="failed" role="alert" />;

class Guard extends Component<{ children: ComponentChildren }, { failed: boolean }> {
  state = { failed: false };
  static getDerivedStateFromError() {
    return { failed: true };
  }
  render() {
    return this.state.failed ? failed : this.props.children;
  }
}

/** Tells the shell how many days remain until the next fitness check, on every boot. */
function reportRetest(native: Native) {
  try {
    const last = window.localStorage.getItem(lastRetestKey);
    const days = daysUntilRetest(last ? new Date(last) : undefined, new Date());
    if (days !== undefined) native.saveSettings({ retestDueInDays: days });
  } catch {
    // No storage, nothing to report.
  }
}

function App({ native }: { native: Native }) {
  if (native.mode === 'setup') return <Setup native={native} />;
  if (native.mode === 'retest') return <Retest native={native} />;
  const { circuit, fellBack } = resolveCircuit(native.lockoutWorkoutId);
  return <Locked native={native} circuit={circuit} fellBack={fellBack} />;
}

const root = document.getElementById('app')!;
try {
  const native = connect();
  reportRetest(native);
  root.textContent = '';
  render(
    <Guard>
      <App native={native} />
    </Guard>,
    root,
  );
} catch {
  root.innerHTML = '';
  const note = document.createElement('div');
  note.className = 'failed';
  note.setAttribute('role', 'alert');
  root.append(note);
}
