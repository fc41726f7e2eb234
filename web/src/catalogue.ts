// Seventy exercises that need nothing but a floor, a wall or a sturdy chair beside a desk, and
// the preset circuits built from them. Data only: bundled into the app, never fetched.

export type Category = 'legs' | 'upper' | 'core' | 'cardio' | 'mobility' | 'posture';
export type Pose = 'stand' | 'squat' | 'lunge' | 'plank' | 'pushup' | 'jump' | 'sit' | 'stretch' | 'floor';

/** A target is a number of reps or a number of seconds, never both. */
export type Target = { reps: number } | { seconds: number };

export interface Exercise {
  id: string;
  name: string;
  category: Category;
  target: Target;
  pose: Pose;
  cues: string[];
  easier?: string;
  harder?: string;
}

function x(
  id: string,
  name: string,
  category: Category,
  target: Target,
  pose: Pose,
  cues: string[],
  easier?: string,
  harder?: string,
): Exercise {
  return { id, name, category, target, pose, cues, easier, harder };
}

const r = (reps: number): Target => ({ reps });
const s = (seconds: number): Target => ({ seconds });

export const exercises: Exercise[] = [
  // Legs
  x('squat', 'Squat', 'legs', r(15), 'squat', ['Feet shoulder-width, toes slightly out', 'Sit back until thighs are level', 'Drive up through the heels'], 'chair-squat', 'squat-jump'),
  x('sumo-squat', 'Sumo squat', 'legs', r(15), 'squat', ['Wide stance, toes turned out', 'Knees track over toes', 'Chest stays tall'], 'squat', 'pulse-squat'),
  x('wall-sit', 'Wall sit', 'legs', s(30), 'sit', ['Back flat on the wall', 'Knees at a right angle', 'Breathe slowly'], 'chair-squat', 'single-leg-wall-sit'),
  x('reverse-lunge', 'Reverse lunge', 'legs', r(12), 'lunge', ['Step back, lower the back knee', 'Front knee over the ankle', 'Alternate legs'], 'split-squat', 'curtsy-lunge'),
  x('forward-lunge', 'Forward lunge', 'legs', r(12), 'lunge', ['Long step forward', 'Both knees bend to about 90°', 'Push back to standing'], 'reverse-lunge'),
  x('side-lunge', 'Side lunge', 'legs', r(10), 'lunge', ['Step wide to one side', 'Sit into that hip, other leg straight', 'Alternate sides'], 'sumo-squat'),
  x('calf-raise', 'Calf raise', 'legs', r(20), 'stand', ['Hold the desk lightly for balance', 'Rise onto the balls of the feet', 'Lower slowly'], undefined, 'single-leg-calf-raise'),
  x('single-leg-calf-raise', 'Single-leg calf raise', 'legs', r(12), 'stand', ['One foot, light hand on the desk', 'Full rise, slow lower', 'Switch legs halfway'], 'calf-raise'),
  x('chair-squat', 'Sit-to-stand', 'legs', r(12), 'sit', ['Sit on the front of the chair', 'Stand without using your hands', 'Lower with control'], undefined, 'squat'),
  x('split-squat', 'Split squat', 'legs', r(10), 'lunge', ['Staggered stance, feet stay planted', 'Lower straight down', 'Switch legs halfway'], 'chair-squat', 'reverse-lunge'),
  x('glute-bridge', 'Glute bridge', 'legs', r(15), 'floor', ['Lie on your back, knees bent', 'Squeeze and lift the hips', 'Pause at the top'], undefined, 'single-leg-bridge'),
  x('single-leg-bridge', 'Single-leg bridge', 'legs', r(8), 'floor', ['One foot down, other leg up', 'Lift the hips level', 'Switch legs halfway'], 'glute-bridge'),
  x('curtsy-lunge', 'Curtsy lunge', 'legs', r(10), 'lunge', ['Step back and across', 'Keep the hips square', 'Alternate sides'], 'reverse-lunge'),
  x('pulse-squat', 'Pulse squat', 'legs', s(30), 'squat', ['Hold low in a squat', 'Small pulses up and down', 'Stay on your heels'], 'squat'),
  x('single-leg-wall-sit', 'Single-leg wall sit', 'legs', s(20), 'sit', ['Wall sit, lift one foot', 'Keep the hips level', 'Switch at halftime'], 'wall-sit'),
  x('step-up', 'Step-up', 'legs', r(12), 'stand', ['A sturdy chair or step only', 'Whole foot on the step', 'Alternate the leading leg'], 'calf-raise'),
  // Upper body
  x('push-up', 'Push-up', 'upper', r(10), 'pushup', ['Hands under the shoulders', 'Body in one straight line', 'Chest to a fist above the floor'], 'incline-push-up', 'diamond-push-up'),
  x('incline-push-up', 'Desk push-up', 'upper', r(12), 'pushup', ['Hands on a sturdy desk edge', 'Straight line heels to head', 'Lower the chest to the desk'], 'wall-push-up', 'push-up'),
  x('knee-push-up', 'Knee push-up', 'upper', r(12), 'pushup', ['Knees down, hips forward', 'Elbows at about 45°', 'Full range'], 'incline-push-up', 'push-up'),
  x('wall-push-up', 'Wall push-up', 'upper', r(15), 'stand', ['Hands on the wall at chest height', 'Step back a little', 'Nose towards the wall'], undefined, 'incline-push-up'),
  x('wide-push-up', 'Wide push-up', 'upper', r(10), 'pushup', ['Hands wider than the shoulders', 'Body stays straight', 'Lower slowly'], 'knee-push-up', 'push-up'),
  x('diamond-push-up', 'Diamond push-up', 'upper', r(8), 'pushup', ['Hands together under the chest', 'Elbows brush the ribs', 'Full lockout'], 'push-up'),
  x('chair-dip', 'Chair dip', 'upper', r(10), 'sit', ['Hands on a sturdy chair behind you', 'Elbows point back', 'Lower until arms bend 90°'], undefined, 'straight-leg-dip'),
  x('straight-leg-dip', 'Straight-leg dip', 'upper', r(10), 'sit', ['Legs long, heels down', 'Shoulders away from the ears', 'Control the lowering'], 'chair-dip'),
  x('pike-push-up', 'Pike push-up', 'upper', r(8), 'pushup', ['Hips high, an upside-down V', 'Head lowers between the hands', 'Press back up'], 'push-up'),
  x('shoulder-tap', 'Plank shoulder tap', 'upper', r(16), 'plank', ['High plank, feet wide', 'Tap the opposite shoulder', 'Hips stay still'], 'plank', 'plank-up-down'),
  x('plank-up-down', 'Plank up-down', 'upper', r(10), 'plank', ['Forearm plank to high plank', 'Lead with alternate arms', 'Keep the hips level'], 'shoulder-tap'),
  x('push-up-rotation', 'Push-up and rotation', 'upper', r(8), 'pushup', ['One push-up', 'Rotate into a side plank', 'Alternate sides'], 'push-up'),
  x('arm-circles', 'Arm circles', 'upper', s(30), 'stand', ['Arms straight out to the sides', 'Small circles growing larger', 'Reverse halfway'], undefined),
  // Core
  x('plank', 'Plank', 'core', s(30), 'plank', ['Forearms under the shoulders', 'Squeeze the glutes', 'Do not let the hips sag'], 'knee-plank', 'shoulder-tap'),
  x('knee-plank', 'Knee plank', 'core', s(30), 'plank', ['Forearms and knees down', 'Straight line knees to head', 'Brace the belly'], undefined, 'plank'),
  x('side-plank', 'Side plank', 'core', s(20), 'plank', ['Elbow under the shoulder', 'Hips lifted in line', 'Switch sides halfway'], 'knee-plank'),
  x('crunch', 'Crunch', 'core', r(15), 'floor', ['Knees bent, feet flat', 'Lift the shoulder blades', 'Do not pull on the neck'], undefined, 'bicycle-crunch'),
  x('bicycle-crunch', 'Bicycle crunch', 'core', r(16), 'floor', ['Elbow towards the opposite knee', 'Extend the other leg', 'Slow and controlled'], 'crunch'),
  x('dead-bug', 'Dead bug', 'core', r(10), 'floor', ['On your back, arms up, knees bent', 'Lower opposite arm and leg', 'Lower back stays down'], undefined, 'hollow-hold'),
  x('bird-dog', 'Bird dog', 'core', r(10), 'floor', ['On hands and knees', 'Reach opposite arm and leg', 'Keep the back flat'], undefined, 'dead-bug'),
  x('leg-raise', 'Leg raise', 'core', r(10), 'floor', ['On your back, legs straight', 'Raise the legs to vertical', 'Lower without arching'], 'dead-bug'),
  x('seated-knee-tuck', 'Seated knee tuck', 'core', r(12), 'sit', ['Sit on the chair edge, hold the sides', 'Draw the knees to the chest', 'Extend slowly'], undefined, 'leg-raise'),
  x('hollow-hold', 'Hollow hold', 'core', s(20), 'floor', ['Lower back pressed down', 'Arms and legs hover', 'Bend the knees to make it easier'], 'dead-bug'),
  x('russian-twist', 'Russian twist', 'core', r(16), 'floor', ['Sit tall, lean back a little', 'Turn the chest side to side', 'Feet down if needed'], 'seated-twist'),
  x('flutter-kicks', 'Flutter kicks', 'core', s(20), 'floor', ['On your back, legs low', 'Small quick kicks', 'Lower back stays down'], 'dead-bug'),
  x('heel-taps', 'Heel taps', 'core', r(20), 'floor', ['Shoulders lifted', 'Reach side to side for the heels', 'Keep the chin tucked'], 'crunch'),
  x('seated-twist', 'Seated twist', 'core', r(12), 'sit', ['Sit tall on the chair', 'Turn from the ribs', 'Alternate sides'], undefined, 'russian-twist'),
  // Cardio
  x('jumping-jack', 'Jumping jacks', 'cardio', s(30), 'jump', ['Jump the feet wide, arms overhead', 'Land softly', 'Step instead of jumping if needed'], 'step-jack', 'seal-jack'),
  x('step-jack', 'Step jacks', 'cardio', s(30), 'stand', ['Step one foot out, arms up', 'Back to centre', 'Alternate sides quickly'], undefined, 'jumping-jack'),
  x('seal-jack', 'Seal jacks', 'cardio', s(30), 'jump', ['Arms clap in front', 'Jump the feet wide', 'Keep a steady rhythm'], 'jumping-jack'),
  x('high-knees', 'High knees', 'cardio', s(30), 'stand', ['Run on the spot', 'Knees to hip height', 'Pump the arms'], 'march-in-place'),
  x('butt-kicks', 'Butt kicks', 'cardio', s(30), 'stand', ['Run on the spot', 'Heels towards the glutes', 'Stay light on your feet'], 'march-in-place'),
  x('march-in-place', 'March in place', 'cardio', s(45), 'stand', ['Tall posture', 'Lift the knees', 'Swing the arms'], undefined, 'high-knees'),
  x('skater', 'Skaters', 'cardio', r(16), 'lunge', ['Leap side to side', 'Land on one foot, soft knee', 'Step if space is tight'], 'side-lunge'),
  x('burpee', 'Burpee', 'cardio', r(8), 'jump', ['Squat, hands down', 'Jump back to plank, return', 'Jump up with arms overhead'], 'half-burpee'),
  x('half-burpee', 'Step-back burpee', 'cardio', r(8), 'plank', ['Hands down, step back to plank', 'Step forward again', 'Stand tall'], 'squat', 'burpee'),
  x('shadow-boxing', 'Shadow boxing', 'cardio', s(30), 'stand', ['Light on your feet', 'Quick straight punches', 'Guard up between punches'], undefined),
  x('squat-jump', 'Squat jump', 'cardio', r(10), 'jump', ['Squat down', 'Jump straight up', 'Land softly into the next squat'], 'squat'),
  // Mobility
  x('neck-tilt', 'Neck tilt', 'mobility', s(30), 'stand', ['Ear towards the shoulder', 'Shoulders stay down', 'Switch sides, no bouncing'], undefined),
  x('shoulder-rolls', 'Shoulder rolls', 'mobility', r(12), 'stand', ['Lift the shoulders to the ears', 'Roll them back and down', 'Slow circles'], undefined),
  x('thoracic-rotation', 'Seated rotation stretch', 'mobility', r(8), 'sit', ['Arms crossed over the chest', 'Turn the upper back', 'Hips stay still'], undefined),
  x('hip-circles', 'Hip circles', 'mobility', r(10), 'stand', ['Hands on the hips', 'Big slow circles', 'Reverse halfway'], undefined),
  x('hamstring-stretch', 'Standing hamstring stretch', 'mobility', s(30), 'stretch', ['Heel forward on the floor', 'Hinge at the hips', 'Switch legs halfway'], undefined),
  x('hip-flexor-stretch', 'Hip flexor stretch', 'mobility', s(30), 'lunge', ['Half-kneel, tuck the pelvis', 'Shift forward gently', 'Switch sides halfway'], undefined),
  x('cat-cow', 'Cat-cow', 'mobility', r(8), 'floor', ['On hands and knees', 'Round the back, then arch', 'Move with the breath'], undefined),
  x('chest-opener', 'Chest opener', 'mobility', s(30), 'stretch', ['Clasp the hands behind you', 'Lift the chest', 'Breathe deeply'], undefined),
  x('quad-stretch', 'Standing quad stretch', 'mobility', s(30), 'stand', ['Hold the desk for balance', 'Heel towards the glute', 'Switch legs halfway'], undefined),
  x('calf-stretch', 'Calf stretch', 'mobility', s(30), 'stretch', ['Hands on the wall', 'Back heel pressed down', 'Switch legs halfway'], undefined),
  // Posture
  x('chin-tuck', 'Chin tuck', 'posture', r(10), 'stand', ['Eyes level', 'Glide the chin straight back', 'Hold for two breaths'], undefined),
  x('wall-angel', 'Wall angel', 'posture', r(10), 'stand', ['Back and arms against the wall', 'Slide the arms up and down', 'Keep contact with the wall'], undefined),
  x('scapular-squeeze', 'Shoulder-blade squeeze', 'posture', r(12), 'stand', ['Arms relaxed', 'Pull the shoulder blades together', 'Hold, then release'], undefined),
  x('doorway-stretch', 'Doorway stretch', 'posture', s(30), 'stretch', ['Forearms on the door frame', 'Step through gently', 'Feel it across the chest'], undefined),
  x('standing-extension', 'Standing back extension', 'posture', r(8), 'stand', ['Hands on the lower back', 'Lean back gently', 'Return to tall'], undefined),
  x('superman', 'Superman', 'posture', r(10), 'floor', ['Face down, arms forward', 'Lift arms and legs a little', 'Look at the floor'], undefined),
];

export interface CircuitItem {
  exercise: string;
  target?: Target;
}

export interface Circuit {
  id: string;
  name: string;
  description: string;
  restSeconds: number;
  items: CircuitItem[];
}

export const presets: Circuit[] = [
  {
    id: 'classic-7',
    name: 'The Classic 7',
    description: 'Twelve moves, whole body, about seven minutes.',
    restSeconds: 10,
    items: [
      { exercise: 'jumping-jack', target: s(30) },
      { exercise: 'wall-sit', target: s(30) },
      { exercise: 'push-up', target: r(10) },
      { exercise: 'crunch', target: r(15) },
      { exercise: 'step-up', target: r(12) },
      { exercise: 'squat', target: r(15) },
      { exercise: 'chair-dip', target: r(10) },
      { exercise: 'plank', target: s(30) },
      { exercise: 'high-knees', target: s(30) },
      { exercise: 'reverse-lunge', target: r(12) },
      { exercise: 'push-up-rotation', target: r(8) },
      { exercise: 'side-plank', target: s(20) },
    ],
  },
  {
    id: 'two-minute-spark',
    name: 'Two-Minute Spark',
    description: 'Four quick moves to wake you up.',
    restSeconds: 5,
    items: [
      { exercise: 'jumping-jack', target: s(30) },
      { exercise: 'squat', target: r(12) },
      { exercise: 'incline-push-up', target: r(10) },
      { exercise: 'high-knees', target: s(20) },
    ],
  },
  {
    id: 'desk-reset',
    name: 'Desk Reset',
    description: 'Gentle mobility for stiff necks, backs and hips.',
    restSeconds: 5,
    items: [
      { exercise: 'neck-tilt' },
      { exercise: 'shoulder-rolls' },
      { exercise: 'thoracic-rotation' },
      { exercise: 'hip-flexor-stretch' },
      { exercise: 'hamstring-stretch' },
      { exercise: 'chest-opener' },
    ],
  },
  {
    id: 'posture-fix',
    name: 'Posture Fix',
    description: 'Undo the hunch: neck, shoulders and upper back.',
    restSeconds: 10,
    items: [
      { exercise: 'chin-tuck' },
      { exercise: 'wall-angel' },
      { exercise: 'scapular-squeeze' },
      { exercise: 'doorway-stretch' },
      { exercise: 'standing-extension' },
    ],
  },
  {
    id: 'legs-at-the-desk',
    name: 'Legs at the Desk',
    description: 'Strong legs without leaving the chair behind.',
    restSeconds: 10,
    items: [
      { exercise: 'chair-squat' },
      { exercise: 'calf-raise' },
      { exercise: 'split-squat', target: r(8) },
      { exercise: 'wall-sit', target: s(40) },
      { exercise: 'glute-bridge', target: r(12) },
    ],
  },
  {
    id: 'core-five',
    name: 'Core Five',
    description: 'Five steady core moves, floor space needed.',
    restSeconds: 10,
    items: [
      { exercise: 'dead-bug' },
      { exercise: 'bird-dog' },
      { exercise: 'plank' },
      { exercise: 'bicycle-crunch' },
      { exercise: 'side-plank' },
    ],
  },
];

export const defaultCircuitId = 'classic-7';

const byId = new Map(exercises.map((e) => [e.id, e]));

export function exercise(id: string): Exercise | undefined {
  return byId.get(id);
}

export const categoryNames: Record<Category, string> = {
  legs: 'Legs',
  upper: 'Upper body',
  core: 'Core',
  cardio: 'Cardio',
  mobility: 'Mobility',
  posture: 'Posture',
};

// The native camera coach: Tovin counts and grades the reps itself. If the camera cannot be used,
// the lockout runs the circuit named here instead.
export interface CameraCoach {
  id: string;
  name: string;
  description: string;
  fallbackCircuitId: string;
}

export const cameraCoaches: CameraCoach[] = [
  {
    id: 'coach:squats',
    name: 'Camera coach: squats',
    description: 'Tovin watches through your camera and counts clean squats',
    fallbackCircuitId: 'legs-at-the-desk',
  },
  {
    id: 'coach:jacks',
    name: 'Camera coach: jumping jacks',
    description: 'Hands overhead, feet wide, counted by your camera',
    fallbackCircuitId: 'two-minute-spark',
  },
  {
    id: 'coach:pushups',
    name: 'Camera coach: push-ups',
    description: 'Camera side-on; depth and body line are graded',
    fallbackCircuitId: 'classic-7',
  },
];
